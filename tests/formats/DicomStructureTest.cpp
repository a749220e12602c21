// The walk over a DICOM file's elements that guards GDCM from malformed files.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "TestSupport.h"
#include "formats/DicomSeries.h"
#include "formats/DicomStructure.h"

namespace tarv {
namespace {

using formats::checkDicomStructure;
using formats::DicomStructure;
using testing::TemporaryDirectory;
using testing::writeBytes;

std::string u16(std::uint16_t v) { return std::string{static_cast<char>(v & 0xff), static_cast<char>(v >> 8)}; }
std::string u32(std::uint32_t v) { return u16(static_cast<std::uint16_t>(v & 0xffff)) + u16(static_cast<std::uint16_t>(v >> 16)); }
std::string tag(std::uint16_t group, std::uint16_t element) { return u16(group) + u16(element); }

// An explicit little endian element; long forms for OB, OW, SQ, UN, UT.
std::string element(std::uint16_t group, std::uint16_t number, const std::string& vr, const std::string& value,
                    std::uint32_t length = 0xfffffffe) {
  const std::uint32_t n = length == 0xfffffffe ? static_cast<std::uint32_t>(value.size()) : length;
  const bool longForm = vr == "OB" || vr == "OW" || vr == "SQ" || vr == "UN" || vr == "UT";
  return tag(group, number) + vr + (longForm ? std::string(2, '\0') + u32(n) : u16(static_cast<std::uint16_t>(n))) + value;
}
std::string item(const std::string& content, std::uint32_t length) { return tag(0xfffe, 0xe000) + u32(length) + content; }
const std::string itemEnd = tag(0xfffe, 0xe00d) + u32(0);
const std::string sequenceEnd = tag(0xfffe, 0xe0dd) + u32(0);

std::string fileWith(const std::string& dataSet, const std::string& transferSyntax = "1.2.840.10008.1.2.1") {
  std::string syntax = transferSyntax;
  if (syntax.size() % 2) syntax += '\0';
  return std::string(128, '\0') + "DICM" + element(0x0002, 0x0002, "UI", "1.2.840.10008.5.1.4.1.1.2\0") +
         element(0x0002, 0x0010, "UI", syntax) + dataSet;
}

// A data set with a sequence of undefined length holding an item of undefined length, one of
// defined length holding an item of defined length, and encapsulated pixel data.
std::string wellFormedDataSet() {
  const std::string uid = element(0x0008, 0x1150, "UI", std::string("1.2\0", 4));
  const std::string undefinedSequence =
      tag(0x0008, 0x1140) + "SQ" + std::string(2, '\0') + u32(0xffffffff) + item(uid + itemEnd, 0xffffffff) + sequenceEnd;
  const std::string definedItem = item(uid, static_cast<std::uint32_t>(uid.size()));
  const std::string definedSequence = element(0x0008, 0x1115, "SQ", definedItem);
  const std::string pixels = tag(0x7fe0, 0x0010) + "OB" + std::string(2, '\0') + u32(0xffffffff) + item("", 0) +
                             item("abcd", 4) + sequenceEnd;
  return element(0x0008, 0x0060, "CS", "CT") + undefinedSequence + definedSequence + pixels;
}

Result<DicomStructure> check(const TemporaryDirectory& dir, const std::string& bytes) {
  const std::string path = dir.file("f.dcm");
  writeBytes(path, bytes);
  return checkDicomStructure(path);
}

std::string reason(const Result<DicomStructure>& result) { return result.ok() ? "accepted" : result.status().message(); }

TEST(DicomStructure, WellFormedFilesAndOtherFiles) {
  TemporaryDirectory dir;
  EXPECT_EQ(check(dir, fileWith(wellFormedDataSet())).value(), DicomStructure::wellFormed);
  // Implicit little endian; files without the preamble are not taken.
  const std::string implicitElement = tag(0x0008, 0x0060) + u32(2) + "CT";
  EXPECT_EQ(check(dir, fileWith(implicitElement, "1.2.840.10008.1.2")).value(), DicomStructure::wellFormed);
  EXPECT_EQ(check(dir, implicitElement + tag(0x0010, 0x0010) + u32(4) + "A^B ").value(), DicomStructure::notDicom);
  EXPECT_EQ(reason(check(dir, fileWith("") + tag(0x0002, 0x0000) + "DS" + u16(0))),
            "element (0002,0000) has the value representation DS, not UL");
  EXPECT_EQ(check(dir, "hello, this is a text file\n").value(), DicomStructure::notDicom);
  EXPECT_EQ(check(dir, "").value(), DicomStructure::notDicom);
  EXPECT_EQ(check(dir, tag(0x0002, 0x0000) + u32(0)).value(), DicomStructure::notDicom);
  EXPECT_EQ(reason(check(dir, std::string(128, '\0') + "DICM" + element(0x0002, 0x0010, "UI", "1.2.840.10008.1.2\0"))),
            "a file meta group without a media storage SOP class");
  EXPECT_EQ(reason(check(dir, fileWith(""))), "a DICOM file without a data set after its file meta group");
  // GDCM asserts on a recognition code (retired) that does not name ACR-NEMA.
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0008, 0x0010, "SH", "ACR-NEMA 2.0")))), "accepted");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0008, 0x0010, "US", u16(244))))),
            "element (0008,0010) (recognition code) does not name ACR-NEMA");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0008, 0x0010, "SH", "")))),
            "element (0008,0010) (recognition code) does not name ACR-NEMA");
}

TEST(DicomStructure, LengthsPastTheirEnclosureAreRefusedAtOnce) {
  TemporaryDirectory dir;
  const auto started = std::chrono::steady_clock::now();
  // A value of 4 GB in a file of 200 bytes: GDCM would allocate it.
  const Result<DicomStructure> huge = check(dir, fileWith(element(0x0009, 0x0010, "OB", "", 0xffffff00)));
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(50));
  EXPECT_EQ(reason(huge), "element (0009,0010) of 4294967040 bytes runs past the end of the file");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0008, 0x103e, "LO", "ab", 0xe010)))),
            "element (0008,103e) of 57360 bytes runs past the end of the file");
  // An element longer than the item that holds it.
  const std::string inner = element(0x0008, 0x1150, "UI", "1.2\0", 40);
  const std::string sequence = element(0x0008, 0x1115, "SQ", item(inner, static_cast<std::uint32_t>(inner.size())));
  EXPECT_EQ(reason(check(dir, fileWith(sequence + element(0x0010, 0x0010, "PN", "A^B ")))),
            "element (0008,1150) of 40 bytes runs past the end of its item or sequence");
  const std::string fragment = tag(0x7fe0, 0x0010) + "OB" + std::string(2, '\0') + u32(0xffffffff) + item("ab", 9000) + sequenceEnd;
  EXPECT_EQ(reason(check(dir, fileWith(fragment))), "a pixel data fragment of 9000 bytes runs past the end of the file");
}

TEST(DicomStructure, EnclosuresWithoutTheirEndAreRefused) {
  TemporaryDirectory dir;
  const std::string open = tag(0x0008, 0x1140) + "SQ" + std::string(2, '\0') + u32(0xffffffff);
  EXPECT_EQ(reason(check(dir, fileWith(open + item(element(0x0008, 0x0060, "CS", "CT") + itemEnd, 0xffffffff)))),
            "a sequence without its delimiter");
  EXPECT_EQ(reason(check(dir, fileWith(open + item(element(0x0008, 0x0060, "CS", "CT"), 0xffffffff)))),
            "an item without its delimiter");
  EXPECT_EQ(reason(check(dir, fileWith(tag(0x7fe0, 0x0010) + "OB" + std::string(2, '\0') + u32(0xffffffff) + item("", 0)))),
            "encapsulated pixel data without its delimiter");
  EXPECT_EQ(reason(check(dir, fileWith(itemEnd))), "(fffe,e00d) outside a sequence");
}

TEST(DicomStructure, UnknownRepresentationsDeepNestingAndDeflatedFilesAreRefused) {
  TemporaryDirectory dir;
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x0004, "Z9", "MONOCHROME2 ")))),
            "element (0028,0004) has an unknown value representation");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x0006, "CS", "MONOCHROME2 ")))),
            "element (0028,0006) is not a 2-byte US value");
  EXPECT_EQ(reason(check(dir, fileWith(tag(0x0028, 0x0010) + u32(4) + u32(512), "1.2.840.10008.1.2"))),
            "element (0028,0010) is not a 2-byte US value");
  // GDCM takes SS only where the standard allows it.
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x0100, "SS", u16(16))))),
            "element (0028,0100) is not a 2-byte US value");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x0106, "SS", u16(16))))), "accepted");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x0106, "OB", u16(16))))),
            "element (0028,0106) is not a 2-byte US or SS value");
  EXPECT_EQ(check(dir, fileWith(element(0x0028, 0x0010, "US", u16(512)))).value(), DicomStructure::wellFormed);
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x0002, "US", u16(7))))), "element (0028,0002) has the unusable value 7");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x1052, "DT", "-1024.0 ")))),
            "element (0028,1052) has the value representation DT, not DS");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x0100, "US", u16(17))))), "element (0028,0100) has the unusable value 17");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x0100, "US", u16(8)) + element(0x0028, 0x0101, "US", u16(12))))),
            "bits stored (12) beyond bits allocated (8)");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x0101, "US", u16(8))))), "bits stored (8) beyond bits allocated (none)");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x0009, "CS", "MONOCHROME2 ")))),
            "element (0028,0009) is not a list of AT values");
  EXPECT_EQ(check(dir, fileWith(element(0x0028, 0x0009, "AT", tag(0x0018, 0x1063)))).value(), DicomStructure::wellFormed);
  std::string nested = element(0x0008, 0x0060, "CS", "CT");
  for (int depth = 0; depth < 40; ++depth)
    nested = tag(0x0008, 0x1140) + "SQ" + std::string(2, '\0') + u32(0xffffffff) + item(nested + itemEnd, 0xffffffff) + sequenceEnd;
  EXPECT_EQ(reason(check(dir, fileWith(nested))), "sequences nested more than 32 deep");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0008, 0x0060, "CS", "CT"), "1.2.840.10008.1.2.1.99"))), "deflated DICOM files");
}

// The series reader refuses a malformed file with the walk's reason, naming the element.
// GDCM takes abbreviations of PALETTE COLOR, and asserts on palettes that are missing or do not
// fit their descriptors; palette images are not read.
TEST(DicomStructure, PaletteImagesAreRefused) {
  TemporaryDirectory dir;
  const std::string descriptor = u16(4) + u16(0) + u16(16);
  std::string palettes;
  for (std::uint16_t k = 0; k < 3; ++k)
    palettes += element(0x0028, static_cast<std::uint16_t>(0x1101 + k), "US", descriptor);
  for (std::uint16_t k = 0; k < 3; ++k)
    palettes += element(0x0028, static_cast<std::uint16_t>(0x1201 + k), "OW", std::string(8, '\1'));
  for (const std::string photometric : {"PALETTE COLOR ", "PALETTE ", "P ", "PAL "}) {
    SCOPED_TRACE(photometric);
    const std::string palette = element(0x0028, 0x0004, "CS", photometric);
    for (const std::string& rest : {std::string(), palettes}) {
      const Result<DicomStructure> checked = check(dir, fileWith(palette + rest));
      EXPECT_EQ(reason(checked), "PALETTE COLOR images (colours from palettes) are not read");
      EXPECT_EQ(checked.status().code(), StatusCode::unsupported);
    }
  }
  for (const std::string photometric : {"MONOCHROME2 ", "RGB ", "M ", "YBR_FULL"})
    EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x0004, "CS", photometric)))), "accepted") << photometric;
}

// GDCM leaves numbers it cannot parse unset (their memory's leftovers come back as spacings and
// directions), so the numbers of the elements it reads must parse, and be as many as it reads.
TEST(DicomStructure, NumbersGdcmReadsMustParse) {
  TemporaryDirectory dir;
  const auto spacing = [&](const std::string& text) {
    return reason(check(dir, fileWith(element(0x0028, 0x0030, "DS", text))));
  };
  EXPECT_EQ(spacing("0.75\\0.5 "), "accepted");
  EXPECT_EQ(spacing(" .75\\+5.E-1"), "accepted");
  EXPECT_EQ(spacing(""), "accepted");
  EXPECT_EQ(spacing("\xd4.75\\0.5 "), "element (0028,0030) (DS): value 1 is not a decimal number");
  EXPECT_EQ(spacing("0.75\\"), "element (0028,0030) (DS): value 2 is not a decimal number");
  EXPECT_EQ(spacing("0.75\\1e"), "element (0028,0030) (DS): value 2 is not a decimal number");
  EXPECT_EQ(spacing("nan\\1 "), "element (0028,0030) (DS): value 1 is not a decimal number");
  EXPECT_EQ(spacing("0.75"), "element (0028,0030) (DS): 1 value where 2 are read");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0020, 0x0037, "DS", "1\\0\\0\\0\\1\\-0.30@990")))),
            "element (0020,0037) (DS): value 6 is not a decimal number");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0020, 0x0013, "IS", "2.5 ")))),
            "element (0020,0013) (IS): value 1 is not an integer");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x1053, "DS", "1\\2 ")))),
            "element (0028,1053) (DS): 2 values where 1 is read");
  // Implicit syntax: the representation is the element's own.
  EXPECT_EQ(reason(check(dir, fileWith(tag(0x0028, 0x0030) + u32(4) + "1\\x ", "1.2.840.10008.1.2"))),
            "element (0028,0030) (DS): value 2 is not a decimal number");
  // GDCM asserts on a rescale slope of 0.
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x1053, "DS", "0.0E5 ")))), "element (0028,1053) (rescale slope) is 0");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x1053, "DS", "-0 ")))), "element (0028,1053) (rescale slope) is 0");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x1053, "DS", "1e-300")))), "accepted");
  // GDCM asserts on MR images with an intercept and no slope; the two come together.
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x1052, "DS", "-1024 ")))), "a rescale intercept without a rescale slope");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x1052, "DS", "-1024 ") + element(0x0028, 0x1053, "DS", "  ")))),
            "a rescale slope without a value");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x1053, "DS", "")))), "a rescale slope without a value");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x1052, "DS", "-1024 ") + element(0x0028, 0x1053, "DS", "2 ")))),
            "accepted");
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x1053, "DS", "2 ")))), "accepted");
  // Any number of window centres.
  EXPECT_EQ(reason(check(dir, fileWith(element(0x0028, 0x1050, "DS", "40\\400\\50 ")))), "accepted");
}

TEST(DicomStructure, TheSeriesReaderRefusesMalformedFilesBeforeGdcmReadsThem) {
  TemporaryDirectory dir;
  const std::string path = dir.file("bad.dcm");
  writeBytes(path, fileWith(element(0x0009, 0x0010, "OB", "", 0xffffff00)));
  Result<DatasetHandle> read = formats::readDicomSeries(path, "");
  ASSERT_FALSE(read.ok());
  EXPECT_NE(read.status().message().find("element (0009,0010) of 4294967040 bytes runs past the end of the file"), std::string::npos)
      << read.status().message();
}

// A 7 x 10 CT image of int16 pixels: the pixel spacing element given (empty: none) and pixel data
// of the bytes given.
std::string ctImage(const std::string& pixelSpacing, std::size_t pixelBytes) {
  return fileWith(element(0x0008, 0x0016, "UI", std::string("1.2.840.10008.5.1.4.1.1.2\0", 26)) +
                  element(0x0028, 0x0002, "US", u16(1)) + element(0x0028, 0x0004, "CS", "MONOCHROME2 ") +
                  element(0x0028, 0x0010, "US", u16(10)) + element(0x0028, 0x0011, "US", u16(7)) +
                  (pixelSpacing.empty() ? std::string() : element(0x0028, 0x0030, "DS", pixelSpacing)) +
                  element(0x0028, 0x0100, "US", u16(16)) + element(0x0028, 0x0101, "US", u16(16)) +
                  element(0x0028, 0x0102, "US", u16(15)) + element(0x0028, 0x0103, "US", u16(1)) +
                  element(0x7fe0, 0x0010, "OW", std::string(pixelBytes, '\1')));
}

// The series read from a file of the bytes: its dataset, or the refusal.
Result<DatasetHandle> readSeriesOf(const TemporaryDirectory& dir, const std::string& bytes) {
  const std::string path = dir.file("series.dcm");
  writeBytes(path, bytes);
  return formats::readDicomSeries(path, "");
}

// Native pixel data shorter than rows x columns x samples: GDCM would copy the image's length
// from it.
TEST(DicomStructure, TheSeriesReaderRefusesPixelDataShorterThanTheImage) {
  TemporaryDirectory dir;
  EXPECT_NE(readSeriesOf(dir, ctImage("", 70)).status().message().find("pixel data of 70 bytes where the image needs 140"),
            std::string::npos);
  Result<DatasetHandle> read = readSeriesOf(dir, ctImage("", 140));
  ASSERT_TRUE(read.ok()) << read.status().toString();
  EXPECT_EQ(GetRawPtr(*read)->getElement<int>(DatasetCoordinates(6, 9, 0, 0, 0)), 0x0101);
}

TEST(DicomStructure, TheSeriesReaderRefusesSpacingsThatAreNotPositive) {
  TemporaryDirectory dir;
  const std::string refusal = readSeriesOf(dir, ctImage("0.5\\-0.75", 140)).status().message();
  EXPECT_NE(refusal.find("a pixel spacing of -0.750000 (spacings are positive)"), std::string::npos) << refusal;
  Result<DatasetHandle> read = readSeriesOf(dir, ctImage("0.5\\0.75", 140));
  ASSERT_TRUE(read.ok()) << read.status().toString();
  EXPECT_DOUBLE_EQ(GetRawPtr(*read)->getWorldEmbedding().getVoxelSpacing().y, 0.5);
}

}  // namespace
}  // namespace tarv
