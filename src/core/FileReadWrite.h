#ifndef TARV_CORE_FILEREADWRITE_H
#define TARV_CORE_FILEREADWRITE_H

#include <istream>
#include <list>
#include <ostream>
#include <string>

#include "core/Coordinates.h"

namespace tarv {

// An object that describes itself as a block of text entries, and the helpers to spell them.
//
// Layout: one entry a line, "Name = value". Values are single-line text:
//   int        decimal, e.g. "-12"
//   bool       "true" or "false"
//   double     shortest text that reads back to the same bits: "0.1", "-0", "5e-324", "inf",
//              "-inf", "nan", "-nan"; a NaN with another payload as "nan(0x<hex payload>)"
//   string     the text itself (line breaks written as blanks; surrounding blanks are not kept)
//   list, coordinates   the values above separated by single blanks; empty: "Name ="
// A block ends at an empty (or all-blank) line or at the end of the stream, so several blocks may
// follow one another. Names must not contain '='. Carriage returns and blanks around the name,
// the '=' and the value are ignored on reading.
//
// Reading a block:
//   while (FileReadWrite::isEntry(is)) {
//     const std::string name = FileReadWrite::readEntryName(is);
//     if (name == "ID") id = FileReadWrite::readIntValue(is);
//     else FileReadWrite::skipCurrentLine(is);
//   }
// Every value reader consumes the rest of the line, so a malformed value never shifts the
// following entries. A value that is not exactly one of the forms above (including a number
// out of range for its type) gives the default: 0, false, 0.0, or an empty list.
class FileReadWrite {
public:
  virtual ~FileReadWrite();
  virtual void read(std::istream& is, bool flag) = 0;
  virtual void write(std::ostream& os) = 0;

  // True when another entry of the current block follows. At an empty line it consumes that line
  // and returns false, so that the next block's reader starts on the following line; at the end of
  // the stream (or on a failed stream) it returns false.
  static bool isEntry(std::istream& is);
  // The trimmed text up to the next '=', which is consumed. A line without '=' gives its trimmed
  // text, and the stream stays before the line end for the value reader or skipCurrentLine.
  static std::string readEntryName(std::istream& is);
  static int readIntValue(std::istream& is);
  // "true" (any case) or "1" is true; anything else is false.
  static bool readBoolValue(std::istream& is);
  static double readDoubleValue(std::istream& is);
  static std::string readStringValue(std::istream& is);
  static Coordinates<double> readDoubleCoordinatesValue(std::istream& is);
  static std::list<int> readIntList(std::istream& is);
  // Discards up to and including the next line end.
  static void skipCurrentLine(std::istream& is);

  static void writeValue(std::ostream& os, const std::string& name, int value);
  static void writeValue(std::ostream& os, const std::string& name, bool value);
  static void writeValue(std::ostream& os, const std::string& name, double value);
  static void writeValue(std::ostream& os, const std::string& name, const std::string& value);
  // Keeps string literals from binding to the bool overload.
  static void writeValue(std::ostream& os, const std::string& name, const char* value);
  static void writeValue(std::ostream& os, const std::string& name, const Coordinates<double>& value);
  static void writeList(std::ostream& os, const std::string& name, const std::list<int>& values);
  // Ends the current block with an empty line.
  static void writeEndOfBlock(std::ostream& os);
};

}  // namespace tarv

#endif
