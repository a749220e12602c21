#include "core/FileReadWrite.h"

#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <cstdint>
#include <limits>
#include <random>
#include <sstream>

using tarv::Coordinates;
using tarv::FileReadWrite;

namespace {

std::uint64_t bitsOf(double v) { return std::bit_cast<std::uint64_t>(v); }

// Writes one double entry and reads it back through the entry protocol.
double roundTrip(double value) {
  std::stringstream s;
  FileReadWrite::writeValue(s, "Value", value);
  EXPECT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "Value");
  const double back = FileReadWrite::readDoubleValue(s);
  EXPECT_FALSE(FileReadWrite::isEntry(s)) << "one entry was written, the block must end after it";
  return back;
}

// One line "Name = <text>", read as an int (or a double) through the entry protocol.
int intFrom(const std::string& text) {
  std::istringstream s("Name = " + text + "\nNext = 1\n");
  FileReadWrite::isEntry(s);
  FileReadWrite::readEntryName(s);
  const int value = FileReadWrite::readIntValue(s);
  EXPECT_TRUE(FileReadWrite::isEntry(s)) << "the value '" << text << "' must not desynchronise the stream";
  EXPECT_EQ(FileReadWrite::readEntryName(s), "Next");
  EXPECT_EQ(FileReadWrite::readIntValue(s), 1);
  return value;
}

double doubleFrom(const std::string& text) {
  std::istringstream s("Name = " + text + "\nNext = 1\n");
  FileReadWrite::isEntry(s);
  FileReadWrite::readEntryName(s);
  const double value = FileReadWrite::readDoubleValue(s);
  EXPECT_TRUE(FileReadWrite::isEntry(s)) << "the value '" << text << "' must not desynchronise the stream";
  EXPECT_EQ(FileReadWrite::readEntryName(s), "Next");
  return value;
}

// A minimal description: an ID and a list.
class Description : public FileReadWrite {
public:
  int id = -1;
  std::list<int> sources;
  bool readEverything = true;

  void read(std::istream& is, bool) override {
    id = -1;
    sources.clear();
    while (isEntry(is)) {
      const std::string name = readEntryName(is);
      if (name == "ID")
        id = readIntValue(is);
      else if (name == "Sources")
        sources = readIntList(is);
      else
        skipCurrentLine(is);
    }
  }
  void write(std::ostream& os) override {
    writeValue(os, "ID", id);
    writeValue(os, "Type", "Description");
    writeList(os, "Sources", sources);
  }
};

}  // namespace

TEST(FileReadWriteTest, LayoutOfEachValueKind) {
  std::ostringstream s;
  FileReadWrite::writeValue(s, "Int", -12);
  FileReadWrite::writeValue(s, "Bool", true);
  FileReadWrite::writeValue(s, "Other", false);
  FileReadWrite::writeValue(s, "Double", 0.1);
  FileReadWrite::writeValue(s, "Text", std::string("CastDataset"));
  FileReadWrite::writeValue(s, "Literal", "abc");
  Coordinates<double> c(3);
  c[0] = 1;
  c[1] = -2.5;
  c[2] = 1e300;
  FileReadWrite::writeValue(s, "Coordinates", c);
  FileReadWrite::writeList(s, "List", {3, -4, 5});
  FileReadWrite::writeList(s, "Empty", {});
  FileReadWrite::writeEndOfBlock(s);
  EXPECT_EQ(s.str(),
            "Int = -12\n"
            "Bool = true\n"
            "Other = false\n"
            "Double = 0.1\n"
            "Text = CastDataset\n"
            "Literal = abc\n"
            "Coordinates = 1 -2.5 1e+300\n"
            "List = 3 -4 5\n"
            "Empty =\n"
            "\n");
}

TEST(FileReadWriteTest, IntRoundTrip) {
  for (const int value : {0, 1, -1, 42, -123456, INT_MAX, INT_MIN}) {
    std::stringstream s;
    FileReadWrite::writeValue(s, "Value", value);
    ASSERT_TRUE(FileReadWrite::isEntry(s));
    EXPECT_EQ(FileReadWrite::readEntryName(s), "Value");
    EXPECT_EQ(FileReadWrite::readIntValue(s), value);
    EXPECT_FALSE(FileReadWrite::isEntry(s));
  }
}

TEST(FileReadWriteTest, BoolRoundTrip) {
  for (const bool value : {true, false}) {
    std::stringstream s;
    FileReadWrite::writeValue(s, "Flag", value);
    ASSERT_TRUE(FileReadWrite::isEntry(s));
    EXPECT_EQ(FileReadWrite::readEntryName(s), "Flag");
    EXPECT_EQ(FileReadWrite::readBoolValue(s), value);
  }
}

TEST(FileReadWriteTest, DoubleRoundTripKeepsTheBits) {
  const double values[] = {0.0,
                           -0.0,
                           0.1,
                           -0.1,
                           1.0 / 3.0,
                           1e300,
                           -2.5e-300,
                           std::numeric_limits<double>::max(),
                           std::numeric_limits<double>::lowest(),
                           std::numeric_limits<double>::min(),
                           std::numeric_limits<double>::denorm_min(),
                           -std::numeric_limits<double>::denorm_min(),
                           std::numeric_limits<double>::min() / 3.0,
                           std::numeric_limits<double>::epsilon(),
                           std::numeric_limits<double>::infinity(),
                           -std::numeric_limits<double>::infinity(),
                           std::numeric_limits<double>::quiet_NaN(),
                           -std::numeric_limits<double>::quiet_NaN(),
                           std::numeric_limits<double>::signaling_NaN(),
                           std::bit_cast<double>(std::uint64_t{0x7ff0000000000001}),
                           std::bit_cast<double>(std::uint64_t{0xfff8dead0000beef})};
  for (const double value : values) EXPECT_EQ(bitsOf(roundTrip(value)), bitsOf(value)) << "value " << value;
}

TEST(FileReadWriteTest, DoubleRoundTripOfRandomBitPatterns) {
  const unsigned seed = 7;
  std::mt19937_64 random(seed);
  for (int i = 0; i < 5000; ++i) {
    const std::uint64_t bits = random();
    ASSERT_EQ(bitsOf(roundTrip(std::bit_cast<double>(bits))), bits) << "seed " << seed << ", round " << i;
  }
}

TEST(FileReadWriteTest, SpecialDoubleSpellings) {
  std::ostringstream s;
  FileReadWrite::writeValue(s, "A", -0.0);
  FileReadWrite::writeValue(s, "B", std::numeric_limits<double>::infinity());
  FileReadWrite::writeValue(s, "C", -std::numeric_limits<double>::infinity());
  FileReadWrite::writeValue(s, "D", std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(s.str(), "A = -0\nB = inf\nC = -inf\nD = nan\n");
}

TEST(FileReadWriteTest, StringRoundTrip) {
  std::stringstream s;
  FileReadWrite::writeValue(s, "File", std::string("/data/my image = 1.raw"));
  FileReadWrite::writeValue(s, "Empty", std::string());
  FileReadWrite::writeValue(s, "Broken", std::string("two\nlines"));
  FileReadWrite::writeValue(s, "After", 5);
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "File");
  EXPECT_EQ(FileReadWrite::readStringValue(s), "/data/my image = 1.raw") << "only the first '=' separates";
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "Empty");
  EXPECT_EQ(FileReadWrite::readStringValue(s), "");
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "Broken");
  EXPECT_EQ(FileReadWrite::readStringValue(s), "two lines") << "a line break must not split the entry";
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "After");
  EXPECT_EQ(FileReadWrite::readIntValue(s), 5);
}

TEST(FileReadWriteTest, CoordinatesRoundTrip) {
  Coordinates<double> c(5);
  c[0] = 0.1;
  c[1] = -0.0;
  c[2] = std::numeric_limits<double>::infinity();
  c[3] = std::numeric_limits<double>::denorm_min();
  c[4] = -123456.789;
  std::stringstream s;
  FileReadWrite::writeValue(s, "Direction", c);
  FileReadWrite::writeValue(s, "Empty", Coordinates<double>());
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "Direction");
  const Coordinates<double> back = FileReadWrite::readDoubleCoordinatesValue(s);
  ASSERT_EQ(back.size(), 5u);
  for (unsigned i = 0; i < 5; ++i) EXPECT_EQ(bitsOf(back[i]), bitsOf(c[i])) << "component " << i;
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "Empty");
  EXPECT_EQ(FileReadWrite::readDoubleCoordinatesValue(s).size(), 0u);
  EXPECT_FALSE(FileReadWrite::isEntry(s));
}

TEST(FileReadWriteTest, CoordinatesWithNan) {
  Coordinates<double> c(2);
  c[0] = std::numeric_limits<double>::quiet_NaN();
  c[1] = 2;
  std::stringstream s;
  FileReadWrite::writeValue(s, "V", c);
  FileReadWrite::isEntry(s);
  FileReadWrite::readEntryName(s);
  const Coordinates<double> back = FileReadWrite::readDoubleCoordinatesValue(s);
  ASSERT_EQ(back.size(), 2u);
  EXPECT_EQ(bitsOf(back[0]), bitsOf(c[0]));
  EXPECT_EQ(back[1], 2.0);
}

TEST(FileReadWriteTest, IntListRoundTrip) {
  const std::list<int> lists[] = {{}, {7}, {1, 2, 3}, {INT_MIN, 0, INT_MAX, -1}};
  for (const auto& list : lists) {
    std::stringstream s;
    FileReadWrite::writeList(s, "List", list);
    ASSERT_TRUE(FileReadWrite::isEntry(s));
    EXPECT_EQ(FileReadWrite::readEntryName(s), "List");
    EXPECT_EQ(FileReadWrite::readIntList(s), list);
    EXPECT_FALSE(FileReadWrite::isEntry(s));
  }
}

TEST(FileReadWriteTest, SeveralBlocksInOneStream) {
  Description a, b, c;
  a.id = 1;
  b.id = 2;
  b.sources = {1};
  c.id = 3;
  c.sources = {1, 2};
  std::stringstream s;
  for (Description* d : {&a, &b, &c}) {
    d->write(s);
    FileReadWrite::writeEndOfBlock(s);
  }
  Description r1, r2, r3, r4;
  r1.read(s, false);
  r2.read(s, false);
  r3.read(s, false);
  EXPECT_EQ(r1.id, 1);
  EXPECT_TRUE(r1.sources.empty());
  EXPECT_EQ(r2.id, 2);
  EXPECT_EQ(r2.sources, std::list<int>{1});
  EXPECT_EQ(r3.id, 3);
  EXPECT_EQ(r3.sources, (std::list<int>{1, 2}));
  r4.read(s, false);
  EXPECT_EQ(r4.id, -1) << "nothing is left after the third block";
}

TEST(FileReadWriteTest, LastBlockMayEndAtEndOfStream) {
  std::istringstream s("ID = 4\nSources = 9 8\n\nID = 5\nSources = 4");
  Description first, second;
  first.read(s, false);
  second.read(s, false);
  EXPECT_EQ(first.id, 4);
  EXPECT_EQ(first.sources, (std::list<int>{9, 8}));
  EXPECT_EQ(second.id, 5);
  EXPECT_EQ(second.sources, std::list<int>{4}) << "the last value has no line end";
}

TEST(FileReadWriteTest, IsEntryConsumesTheBlankLineOnly) {
  std::istringstream s("A = 1\n\nB = 2\n");
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "A");
  EXPECT_EQ(FileReadWrite::readIntValue(s), 1);
  EXPECT_FALSE(FileReadWrite::isEntry(s)) << "the blank line ends the block";
  ASSERT_TRUE(FileReadWrite::isEntry(s)) << "the next block starts right after the blank line";
  EXPECT_EQ(FileReadWrite::readEntryName(s), "B");
  EXPECT_EQ(FileReadWrite::readIntValue(s), 2);
  EXPECT_FALSE(FileReadWrite::isEntry(s));
  EXPECT_FALSE(FileReadWrite::isEntry(s)) << "end of stream stays the end";
}

TEST(FileReadWriteTest, WindowsLineEndingsAndBlanks) {
  std::istringstream s("  ID\t=   12 \r\n DynamicallyCached=true\r\nSources =  1   2\t3 \r\nScale = 0.5\r\n \t\r\nID = 13\r\n");
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "ID");
  EXPECT_EQ(FileReadWrite::readIntValue(s), 12);
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "DynamicallyCached");
  EXPECT_TRUE(FileReadWrite::readBoolValue(s));
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "Sources");
  EXPECT_EQ(FileReadWrite::readIntList(s), (std::list<int>{1, 2, 3}));
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "Scale");
  EXPECT_EQ(FileReadWrite::readDoubleValue(s), 0.5);
  EXPECT_FALSE(FileReadWrite::isEntry(s)) << "a line of blanks and a carriage return is a blank line";
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "ID");
  EXPECT_EQ(FileReadWrite::readIntValue(s), 13);
  EXPECT_FALSE(FileReadWrite::isEntry(s));
}

TEST(FileReadWriteTest, UnknownEntriesAreSkipped) {
  std::istringstream s("Type = CastDataset\nFancy = 1 2 3\nID = 8\n");
  Description d;
  d.read(s, false);
  EXPECT_EQ(d.id, 8);
}

TEST(FileReadWriteTest, SkipCurrentLine) {
  std::istringstream s("first line\nsecond = 2\n");
  FileReadWrite::skipCurrentLine(s);
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "second");
  EXPECT_EQ(FileReadWrite::readIntValue(s), 2);
  std::istringstream empty;
  FileReadWrite::skipCurrentLine(empty);
  EXPECT_FALSE(FileReadWrite::isEntry(empty));
}

TEST(FileReadWriteTest, LineWithoutEqualsSign) {
  std::istringstream s("  just some words \nID = 3\nlonely\nX = 1\n");
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "just some words");
  EXPECT_EQ(FileReadWrite::readIntValue(s), 0) << "no value on the line";
  ASSERT_TRUE(FileReadWrite::isEntry(s)) << "the value reader must stop at that line's end";
  EXPECT_EQ(FileReadWrite::readEntryName(s), "ID");
  EXPECT_EQ(FileReadWrite::readIntValue(s), 3);
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "lonely");
  FileReadWrite::skipCurrentLine(s);
  ASSERT_TRUE(FileReadWrite::isEntry(s)) << "skipCurrentLine must stop at that line's end";
  EXPECT_EQ(FileReadWrite::readEntryName(s), "X");
  EXPECT_EQ(FileReadWrite::readIntValue(s), 1);
}

TEST(FileReadWriteTest, GarbageIntegersGiveZero) {
  EXPECT_EQ(intFrom("17"), 17);
  EXPECT_EQ(intFrom("+17"), 17);
  EXPECT_EQ(intFrom("-0"), 0);
  EXPECT_EQ(intFrom("abc"), 0);
  EXPECT_EQ(intFrom(""), 0);
  EXPECT_EQ(intFrom("12abc"), 0) << "the whole value must be a number";
  EXPECT_EQ(intFrom("1 2"), 0);
  EXPECT_EQ(intFrom("3.5"), 0);
  EXPECT_EQ(intFrom("--3"), 0);
  EXPECT_EQ(intFrom("+-3"), 0);
  EXPECT_EQ(intFrom("+"), 0);
  EXPECT_EQ(intFrom("2147483648"), 0) << "one above INT_MAX";
  EXPECT_EQ(intFrom("-2147483649"), 0) << "one below INT_MIN";
  EXPECT_EQ(intFrom("99999999999999999999999999999999999999"), 0);
  EXPECT_EQ(intFrom("0x10"), 0);
}

TEST(FileReadWriteTest, GarbageDoublesGiveZero) {
  EXPECT_EQ(doubleFrom("2.5"), 2.5);
  EXPECT_EQ(doubleFrom("+2.5"), 2.5);
  EXPECT_EQ(doubleFrom("-.5"), -0.5);
  EXPECT_EQ(doubleFrom("1E3"), 1000.0);
  EXPECT_EQ(doubleFrom("Infinity"), std::numeric_limits<double>::infinity());
  EXPECT_EQ(doubleFrom("-INF"), -std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(doubleFrom("NaN")));
  EXPECT_TRUE(std::isnan(doubleFrom("nan(0x0)"))) << "a zero payload falls back to the default NaN";
  EXPECT_TRUE(std::isnan(doubleFrom("nan(zzz)")));
  EXPECT_EQ(doubleFrom("nan(1"), 0.0);
  EXPECT_EQ(doubleFrom("nanny"), 0.0);
  EXPECT_EQ(doubleFrom("abc"), 0.0);
  EXPECT_EQ(doubleFrom(""), 0.0);
  EXPECT_EQ(doubleFrom("1.5.5"), 0.0);
  EXPECT_EQ(doubleFrom("1.5 2"), 0.0);
  EXPECT_EQ(doubleFrom("+-1"), 0.0);
  EXPECT_EQ(doubleFrom("1e99999"), 0.0) << "out of range gives the default";
  EXPECT_EQ(doubleFrom("0x1p3"), 0.0);
}

TEST(FileReadWriteTest, GarbageBoolsAndListsGiveDefaults) {
  std::istringstream s(
      "A = yes\nB = TRUE\nC = 1\nD = 0\nE = true false\n"
      "L = 1 two 3\nM = 1 2 99999999999\nN = \nP = 1.5 x\nQ = -3 +4\n");
  bool bools[5];
  for (bool& b : bools) {
    ASSERT_TRUE(FileReadWrite::isEntry(s));
    FileReadWrite::readEntryName(s);
    b = FileReadWrite::readBoolValue(s);
  }
  EXPECT_FALSE(bools[0]) << "'yes' is not a boolean";
  EXPECT_TRUE(bools[1]);
  EXPECT_TRUE(bools[2]);
  EXPECT_FALSE(bools[3]);
  EXPECT_FALSE(bools[4]);
  for (const char* name : {"L", "M", "N"}) {
    ASSERT_TRUE(FileReadWrite::isEntry(s));
    EXPECT_EQ(FileReadWrite::readEntryName(s), name);
    EXPECT_TRUE(FileReadWrite::readIntList(s).empty()) << "list " << name << " must read as empty";
  }
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "P");
  EXPECT_EQ(FileReadWrite::readDoubleCoordinatesValue(s).size(), 0u);
  ASSERT_TRUE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "Q");
  EXPECT_EQ(FileReadWrite::readIntList(s), (std::list<int>{-3, 4}));
  EXPECT_FALSE(FileReadWrite::isEntry(s));
}

TEST(FileReadWriteTest, TruncatedInputEndsTheBlock) {
  const std::string full = "ID = 12\nSources = 1 2 3\nType = Cast\n";
  for (std::size_t length = 0; length <= full.size(); ++length) {
    std::istringstream s(full.substr(0, length));
    Description d;
    d.read(s, false);
    // "I" is an unknown name; "ID", "ID =" have an empty value; "ID = 1" is cut inside the number.
    const int expected = length < 2 ? -1 : length < 6 ? 0 : length == 6 ? 1 : 12;
    EXPECT_EQ(d.id, expected) << "prefix of length " << length;
    const std::list<int> expectedSources =
        length < 19   ? std::list<int>{}
        : length < 21 ? std::list<int>{1}
        : length < 23 ? std::list<int>{1, 2}
                      : std::list<int>{1, 2, 3};
    EXPECT_EQ(d.sources, expectedSources) << "prefix of length " << length;
  }
}

TEST(FileReadWriteTest, ReadersOnExhaustedOrFailedStreamsGiveDefaults) {
  std::istringstream s("");
  EXPECT_FALSE(FileReadWrite::isEntry(s));
  EXPECT_EQ(FileReadWrite::readEntryName(s), "");
  EXPECT_EQ(FileReadWrite::readIntValue(s), 0);
  EXPECT_FALSE(FileReadWrite::readBoolValue(s));
  EXPECT_EQ(FileReadWrite::readDoubleValue(s), 0.0);
  EXPECT_EQ(FileReadWrite::readStringValue(s), "");
  EXPECT_EQ(FileReadWrite::readDoubleCoordinatesValue(s).size(), 0u);
  EXPECT_TRUE(FileReadWrite::readIntList(s).empty());
  FileReadWrite::skipCurrentLine(s);
  EXPECT_FALSE(FileReadWrite::isEntry(s));

  std::istringstream failed("ID = 3\n");
  failed.setstate(std::ios::failbit);
  EXPECT_FALSE(FileReadWrite::isEntry(failed));
  EXPECT_EQ(FileReadWrite::readIntValue(failed), 0);
}

TEST(FileReadWriteTest, RandomGarbageNeverHangsOrDesynchronises) {
  const unsigned seed = 99;
  std::mt19937 random(seed);
  const std::string alphabet = "ab=01+-.e \t\r\n\n\n";
  for (int round = 0; round < 2000; ++round) {
    std::string text;
    const int length = static_cast<int>(random() % 200);
    for (int i = 0; i < length; ++i) {
      // Mostly characters that make entries, now and then any byte at all.
      text.push_back(random() % 8 == 0 ? static_cast<char>(random() % 256) : alphabet[random() % alphabet.size()]);
    }
    std::istringstream s(text);
    int entries = 0;
    int blocks = 0;
    while (s.peek() != std::char_traits<char>::eof() && blocks <= length + 1) {
      while (FileReadWrite::isEntry(s)) {
        ++entries;
        FileReadWrite::readEntryName(s);
        switch (entries % 6) {
          case 0: FileReadWrite::readIntValue(s); break;
          case 1: FileReadWrite::readBoolValue(s); break;
          case 2: FileReadWrite::readDoubleValue(s); break;
          case 3: FileReadWrite::readDoubleCoordinatesValue(s); break;
          case 4: FileReadWrite::readIntList(s); break;
          default: FileReadWrite::skipCurrentLine(s); break;
        }
        ASSERT_LE(entries, length + 1) << "seed " << seed << ", round " << round << ": more entries than characters";
      }
      ++blocks;
    }
    ASSERT_LE(blocks, length + 1) << "seed " << seed << ", round " << round << ": more blocks than characters";
  }
}
