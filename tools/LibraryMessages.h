#ifndef TARV_TOOLS_LIBRARYMESSAGES_H
#define TARV_TOOLS_LIBRARYMESSAGES_H

#include <cstddef>
#include <string>

namespace tarv::tool {

// The library, libtiff and VTK print diagnostics of their own on the standard error stream. The
// tool collects them instead, so that a failure ends with one line of its own, and uses them as
// the reason of that line when it has nothing better.
//
// install() redirects std::cerr and the libtiff and VTK message handlers into one log for the
// rest of the run; the tool itself writes to stderr through C stdio. A LibraryMessages object
// marks the start of the messages it is interested in.
class LibraryMessages {
public:
  static void install();
  // The whole log, for --verbose runs and tests.
  static const std::string& log();

  LibraryMessages();
  LibraryMessages(const LibraryMessages&) = delete;
  LibraryMessages& operator=(const LibraryMessages&) = delete;

  // True when libtiff, or VTK, reported an error since this object was made.
  bool hasTiffError() const;
  bool hasVtkError() const;
  // True when a read module reported a block it could not read.
  bool hasBlockReadError() const;
  // True when libtiff reported an error or a read module reported a block it could not read.
  bool hasReadError() const { return hasTiffError() || hasBlockReadError(); }
  // The most telling message since this object was made, on one line: the first libtiff error,
  // else the first VTK error, else the last line the library printed; empty when there was none.
  std::string reason() const;

private:
  std::size_t start;
};

}  // namespace tarv::tool

#endif
