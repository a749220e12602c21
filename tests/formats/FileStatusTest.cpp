// The Status-returning forms of the file-format operations: the code and a message naming the
// reason, while the classes' own operations keep their results and messages.
#include <gtest/gtest.h>

#include <iostream>
#include <sstream>
#include <string>

#include "TestSupport.h"
#include "dataset/FileReadDataset.h"
#include "dataset/PNGDatasetFileReadWrite.h"
#include "dataset/RawDatasetFileReadWrite.h"
#include "dataset/TARV1DatasetFileReadModule.h"
#include "dataset/TARV1DatasetFileReadWrite.h"
#include "dataset/TiffDatasetFileWrite.h"
#include "dataset/TiffFileReadModule.h"
#include "dataset/VTIDatasetFileReadWrite.h"
#include "formats/FileStatus.h"

namespace tarv {
namespace {

using testing::TemporaryDirectory;
using testing::readBytes;
using testing::writeBytes;

bool mentions(const Status& status, const std::string& text) {
  return status.message().find(text) != std::string::npos;
}

void expectFailure(const Status& status, StatusCode code, const std::string& text) {
  EXPECT_EQ(status.code(), code) << status.toString();
  EXPECT_TRUE(mentions(status, text)) << status.message();
}

// What the block of code printed on std::cerr.
template <typename F>
std::string standardError(F&& f) {
  std::ostringstream captured;
  std::streambuf* previous = std::cerr.rdbuf(captured.rdbuf());
  f();
  std::cerr.rdbuf(previous);
  return captured.str();
}

Dataset* filled(Dataset& d, TARVElementType type) {
  d.newDataset(DatasetCoordinates(5, 4, 3, 1, 1), type, DatasetWorldEmbedding());
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<double>(it, it.x + 10 * it.y + 100 * it.z);
  return &d;
}

TEST(FileStatus, MissingFileIsNotFound) {
  TemporaryDirectory dir;
  Dataset d(true);
  TARV1DatasetFileReadWrite tarv1;
  tarv1.fileName = dir.file("absent.tarv");
  Status status = formats::readTarv1File(tarv1, &d);
  expectFailure(status, StatusCode::notFound, "no such file");

  filled(d, TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  RawDatasetFileReadWrite raw;
  raw.fileName = dir.file("absent.raw");
  raw.elementType = TARV_ELEMENT_TYPE_UNSIGNED_CHAR;
  status = formats::readRawFile(raw, &d);
  expectFailure(status, StatusCode::notFound, "no such file");

  PNGDatasetFileReadWrite png;
  png.setFileName(dir.file("absent.png"));
  EXPECT_EQ(formats::readPngFile(png, &d, 0).code(), StatusCode::notFound);

  // The lazy module keeps the reason of its failed open.
  TARV1DatasetFileReadModule module;
  EXPECT_FALSE(module.openFile(dir.file("absent.tarv")));
  EXPECT_EQ(formats::lastOpenStatus(module).code(), StatusCode::notFound);
}

TEST(FileStatus, TruncatedTarv1FileIsCorrupt) {
  TemporaryDirectory dir;
  Dataset source(true);
  TARV1DatasetFileReadWrite writer;
  writer.fileName = dir.file("whole.tarv");
  ASSERT_TRUE(formats::writeTarv1File(writer, filled(source, TARV_ELEMENT_TYPE_FLOAT)).ok());
  const std::string bytes = readBytes(writer.fileName);
  ASSERT_EQ(bytes.size(), 2048u + 2 * 60);
  writeBytes(dir.file("short.tarv"), bytes.substr(0, bytes.size() - 7));

  Dataset d(true);
  TARV1DatasetFileReadWrite reader;
  reader.fileName = dir.file("short.tarv");
  const Status status = formats::readTarv1File(reader, &d);
  expectFailure(status, StatusCode::corrupt, "truncated");
  EXPECT_TRUE(mentions(status, std::to_string(bytes.size() - 7))) << status.message();
  EXPECT_FALSE(d.hasData());

  // The class operation gives the same outcome and prints nothing.
  Dataset e(true);
  EXPECT_EQ(standardError([&] { reader.read(&e); }), "");
  EXPECT_FALSE(e.hasData());

  writeBytes(dir.file("header.tarv"), bytes.substr(0, 100));
  reader.fileName = dir.file("header.tarv");
  const Status tooShort = formats::readTarv1File(reader, &d);
  expectFailure(tooShort, StatusCode::corrupt, "too short");

  FileReadDataset lazy;
  lazy.setFileReadModule(new TARV1DatasetFileReadModule());
  EXPECT_FALSE(lazy.openFile(dir.file("short.tarv")));
  const Status open = formats::lastOpenStatus(*lazy.getFileReadModule());
  expectFailure(open, StatusCode::corrupt, "truncated");
}

TEST(FileStatus, NonTiffFileGivenAsTiffNamesLibtiffsReason) {
  TemporaryDirectory dir;
  writeBytes(dir.file("text.tif"), "this is not a TIFF file at all\n");
  FileReadDataset lazy;
  lazy.setFileReadModule(new TiffFileReadModule());
  std::string printed = standardError([&] { EXPECT_FALSE(lazy.openFile(dir.file("text.tif"))); });
  EXPECT_EQ(printed, "");
  const Status status = formats::lastOpenStatus(*lazy.getFileReadModule());
  expectFailure(status, StatusCode::corrupt, "not a readable TIFF file");
  EXPECT_TRUE(mentions(status, "libtiff")) << status.message();
}

TEST(FileStatus, DamagedTileIsReportedOnceWithItsReason) {
  TemporaryDirectory dir;
  Dataset source(true);
  TiffDatasetFileWrite writer;
  writer.fileName = dir.file("volume.tif");
  ASSERT_TRUE(formats::writePagedTiffFile(writer, filled(source, TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT)).ok());
  std::string bytes = readBytes(writer.fileName);
  // The tiles follow the 8-byte file header; the directory comes last.
  for (std::size_t i = 8; i < 40; ++i) bytes[i] = static_cast<char>(0xff);
  writeBytes(dir.file("damaged.tif"), bytes);

  FileReadDataset lazy;
  lazy.setFileReadModule(new TiffFileReadModule());
  std::string printed = standardError([&] { ASSERT_TRUE(lazy.openFile(dir.file("damaged.tif"))); });
  EXPECT_EQ(formats::blockReadStatus(*lazy.getFileReadModule()), okStatus());
  printed = standardError([&] { lazy.getElement<double>(DatasetCoordinates(0, 0, 0, 0, 0)); });
  // The described lines are still printed.
  EXPECT_NE(printed.find("tarv::TiffFileReadModule::readBlock() : TIFFReadTile error\n"), std::string::npos) << printed;
  const Status status = formats::blockReadStatus(*lazy.getFileReadModule());
  expectFailure(status, StatusCode::corrupt, "cannot read tile");
}

TEST(FileStatus, UnsupportedElementTypeForAWriter) {
  TemporaryDirectory dir;
  Dataset d(true);
  filled(d, TARV_ELEMENT_TYPE_DOUBLE);
  TiffDatasetFileWrite tiff;
  tiff.fileName = dir.file("double.tif");
  Status status;
  const std::string printed = standardError([&] { status = formats::writePagedTiffFile(tiff, &d); });
  expectFailure(status, StatusCode::unsupported, "double");
  // The class operation's described line, unchanged.
  EXPECT_EQ(printed, "write() -- error writing file header.\n");
  EXPECT_EQ(standardError([&] { tiff.write(&d); }), "write() -- error writing file header.\n");

  RawDatasetFileReadWrite raw;
  raw.fileName = dir.file("none.raw");
  raw.elementType = TARV_ELEMENT_TYPE_VOID;
  status = formats::writeRawFile(raw, &d);
  expectFailure(status, StatusCode::unsupported, "cannot store");
}

TEST(FileStatus, RawSizeMismatchNamesBothSizes) {
  TemporaryDirectory dir;
  Dataset d(true);
  filled(d, TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT);
  RawDatasetFileReadWrite raw;
  raw.fileName = dir.file("a.raw");
  raw.elementType = TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT;
  raw.headerSize = -5;
  ASSERT_TRUE(formats::writeRawFile(raw, &d).ok());
  EXPECT_EQ(raw.headerSize, 0);
  Dataset larger(true);
  larger.newDataset(DatasetCoordinates(6, 4, 3, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, DatasetWorldEmbedding());
  const Status status = formats::readRawFile(raw, &larger);
  expectFailure(status, StatusCode::invalidArgument, "120 bytes");
  EXPECT_TRUE(mentions(status, "describes 144")) << status.message();
}

TEST(FileStatus, VtkFormatsNameTheirReason) {
  TemporaryDirectory dir;
  writeBytes(dir.file("a.png"), "not a png");
  writeBytes(dir.file("a.vti"), "not xml");
  Dataset d(true);
  PNGDatasetFileReadWrite png;
  png.setFileName(dir.file("a.png"));
  Status status = formats::readPngFile(png, &d, 0);
  expectFailure(status, StatusCode::corrupt, "not a readable PNG file");
  VTIDatasetFileReadWrite vti;
  vti.setFileName(dir.file("a.vti"));
  status = formats::readVtkFile(vti, &d, 0);
  expectFailure(status, StatusCode::corrupt, "VTK XML image data");
  EXPECT_FALSE(d.hasData());

  // Writing into a missing directory.
  filled(d, TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  vti.setFileName(dir.file("no/such/dir/a.vti"));
  status = formats::writeVtkFile(vti, &d, 0);
  EXPECT_EQ(status.code(), StatusCode::notFound);
}

}  // namespace
}  // namespace tarv
