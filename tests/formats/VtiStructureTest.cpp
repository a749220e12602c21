// What VTK's XML image reader would trust in a .vti file, checked before it reads it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "formats/AllocationCap.h"
#include "formats/FormatRegistry.h"
#include "formats/VtiStructure.h"
#include "formats/VtkImageFiles.h"

namespace tarv {
namespace {

using testing::TemporaryDirectory;
using testing::writeBytes;

std::string base64(const std::string& bytes) {
  static const char* digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t k = 0; k < bytes.size(); k += 3) {
    const std::size_t n = std::min<std::size_t>(3, bytes.size() - k);
    std::uint32_t group = 0;
    for (std::size_t j = 0; j < 3; ++j) group = group << 8 | (j < n ? static_cast<unsigned char>(bytes[k + j]) : 0u);
    text += digits[(group >> 18) & 63];
    text += digits[(group >> 12) & 63];
    text += n > 1 ? digits[(group >> 6) & 63] : '=';
    text += n > 2 ? digits[group & 63] : '=';
  }
  return text;
}

// Little-endian 32-bit words.
std::string words(const std::vector<std::uint32_t>& values) {
  std::string bytes;
  for (std::uint32_t v : values)
    for (int k = 0; k < 4; ++k) bytes += static_cast<char>((v >> (8 * k)) & 0xff);
  return bytes;
}

// A 2 x 2 image of one compressed uint8 array, appended in the encoding or inline, whose
// compression header is the words given.
std::string compressedImage(const std::string& format, const std::string& encoding, const std::vector<std::uint32_t>& header) {
  std::string text = "<?xml version=\"1.0\"?>\n"
                     "<VTKFile type=\"ImageData\" version=\"0.1\" byte_order=\"LittleEndian\" header_type=\"UInt32\" "
                     "compressor=\"vtkZLibDataCompressor\">\n"
                     "  <ImageData WholeExtent=\"0 1 0 1 0 0\" Origin=\"0 0 0\" Spacing=\"1 1 1\">\n"
                     "    <Piece Extent=\"0 1 0 1 0 0\">\n      <PointData Scalars=\"v\">\n";
  const std::string stored = encoding == "raw" ? words(header) : base64(words(header));
  if (format == "binary") {
    text += "        <DataArray type=\"UInt8\" Name=\"v\" format=\"binary\">\n          " + stored + "\n        </DataArray>\n";
  } else {
    text += "        <DataArray type=\"UInt8\" Name=\"v\" format=\"appended\" offset=\"0\"/>\n";
  }
  text += "      </PointData>\n    </Piece>\n  </ImageData>\n";
  if (format == "appended") text += "  <AppendedData encoding=\"" + encoding + "\">\n   _" + stored + "\n  </AppendedData>\n";
  return text + "</VTKFile>\n";
}

TEST(VtiStructure, TheBase64OfTheTestsIsStandard) {
  EXPECT_EQ(base64("Man"), "TWFu");
  EXPECT_EQ(base64("Ma"), "TWE=");
  EXPECT_EQ(base64("M"), "TQ==");
}

TEST(VtiStructure, FilesVtkWritesPass) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset(DatasetCoordinates(40, 30, 20, 1, 1), TARV_ELEMENT_TYPE_FLOAT, DatasetWorldEmbedding());
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<double>(it, it.x * 0.5 + it.y - it.z + it.c);
  const std::string path = dir.file("a.vti");
  ASSERT_TRUE(formats::writeDatasetFile(&d, path, formats::FileFormat::vti, formats::RawLayout()).ok());
  EXPECT_TRUE(formats::checkVtiStructure(path).ok());
}

// VTK allocates the block size a compressed array's header claims before it reads a block.
TEST(VtiStructure, CompressionHeadersPastTheCapOrTheFileAreRefused) {
  TemporaryDirectory dir;
  const std::string path = dir.file("a.vti");
  formats::setAllocationCap(std::size_t{1} << 20);
  for (const auto& [format, encoding] : std::vector<std::pair<std::string, std::string>>{
           {"appended", "base64"}, {"appended", "raw"}, {"binary", "base64"}}) {
    SCOPED_TRACE(format + " " + encoding);
    writeBytes(path, compressedImage(format, encoding, {1, 4, 4, 12}));
    EXPECT_TRUE(formats::checkVtiStructure(path).ok()) << formats::checkVtiStructure(path).toString();

    writeBytes(path, compressedImage(format, encoding, {1, 1073741824u, 4, 12}));
    Status refused = formats::checkVtiStructure(path);
    EXPECT_EQ(refused.code(), StatusCode::resourceExhausted) << refused.toString();
    EXPECT_EQ(refused.message().rfind("a VTK image data file with compressed blocks of 1073741824 bytes: ", 0), 0u)
        << refused.message();
    Result<DatasetHandle> read = formats::readVtkImageFile(path, formats::FileFormat::vti);
    EXPECT_EQ(read.status().message(), refused.message());

    writeBytes(path, compressedImage(format, encoding, {4000000000u, 4, 4, 12}));
    EXPECT_EQ(formats::checkVtiStructure(path).message(),
              "a VTK image data file whose compressed array claims 4000000000 blocks, more than its bytes");
    if (format == "appended") {
      // VTK skips the first character after the tag whether or not it is the underscore.
      std::string text = compressedImage(format, encoding, {4000000000u, 4, 4, 12});
      text.replace(text.find("   _"), 4, "x");
      writeBytes(path, text);
      EXPECT_EQ(formats::checkVtiStructure(path).message(),
                "a VTK image data file whose compressed array claims 4000000000 blocks, more than its bytes");
      // It also reads an array with an offset from there, whatever its format says.
      text.replace(text.find("format=\"appended\""), 17, "format=\"appeqded\"");
      writeBytes(path, text);
      EXPECT_EQ(formats::checkVtiStructure(path).message(),
                "a VTK image data file whose compressed array claims 4000000000 blocks, more than its bytes");
    }
    writeBytes(path, compressedImage(format, encoding, {1, 4, 4, 2000000000u}));
    EXPECT_EQ(formats::checkVtiStructure(path).message(),
              "a VTK image data file whose compressed block claims 2000000000 bytes, more than the file holds");
  }
  formats::setAllocationCap(0);
}

TEST(VtiStructure, PiecesMustLieWithinTheWholeExtent) {
  TemporaryDirectory dir;
  const std::string path = dir.file("a.vti");
  std::string text = compressedImage("appended", "base64", {1, 4, 4, 12});
  const std::string piece = "<Piece Extent=\"0 1 0 1 0 0\">";
  text.replace(text.find(piece), piece.size(), "<Piece Extent=\"0 2 0 1 0 0\">");
  writeBytes(path, text);
  EXPECT_EQ(formats::checkVtiStructure(path).message(), "a VTK image data file with a piece outside its whole extent");
  text.replace(text.find("<Piece Extent=\"0 2 0 1 0 0\">"), piece.size(), "<Piece Extent=\"0 0 0 1 0 0\">");
  writeBytes(path, text);
  EXPECT_EQ(formats::checkVtiStructure(path).message(), "a VTK image data file whose piece does not cover its whole extent");
}

}  // namespace
}  // namespace tarv
