// TIFF stacks: every element type the format holds, with components, written and read back;
// truncated files and other refusals.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "FormatTestSupport.h"
#include "formats/FormatRegistry.h"
#include "formats/TiffStackFormat.h"

namespace tarv {
namespace {

using testing::readBytes;
using testing::TemporaryDirectory;
using testing::writeBytes;

TEST(TiffStackFormat, EveryHeldElementTypeAndComponentCountRoundTrips) {
  TemporaryDirectory dir;
  const std::string path = dir.file("stack.tif");
  int written = 0;
  for (int components : {1, 2, 3, 4}) {
    SCOPED_TRACE("components " + std::to_string(components));
    written += testing::roundTripEveryElementType(
        DatasetCoordinates(13, 7, 3, 1, components), DatasetWorldEmbedding(), formats::tiffStackHoldsElementType,
        [&](Dataset& d) { return formats::writeTiffStack(&d, path); }, [&] { return formats::readTiffStack(path); },
        {}, [&](Dataset&, Dataset&) { EXPECT_EQ(formats::countTiffPages(path), 3); });
  }
  EXPECT_EQ(written, 40) << "ten element types, one to four components";
}

TEST(TiffStackFormat, DamagedFilesAreRefusedWithTheReason) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset(DatasetCoordinates(300, 200, 2, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, DatasetWorldEmbedding());
  std::mt19937 random(4);
  testing::fillRandomly(d, random, 0, 65535);
  ASSERT_TRUE(formats::writeTiffStack(&d, dir.file("good.tif")).ok());
  const std::string bytes = readBytes(dir.file("good.tif"));
  // Cut at several places: never a crash, always a refusal or the exact data of a shorter stack.
  for (std::size_t cut : {std::size_t{4}, std::size_t{64}, bytes.size() / 3, bytes.size() / 2, bytes.size() - 9}) {
    SCOPED_TRACE(cut);
    writeBytes(dir.file("cut.tif"), bytes.substr(0, cut));
    Result<DatasetHandle> read = formats::readTiffStack(dir.file("cut.tif"));
    EXPECT_FALSE(read.ok());
    if (!read.ok()) EXPECT_FALSE(read.status().message().empty());
  }
  writeBytes(dir.file("text.tif"), "not a TIFF file at all");
  EXPECT_EQ(formats::readTiffStack(dir.file("text.tif")).status().code(), StatusCode::corrupt);
  EXPECT_EQ(formats::countTiffPages(dir.file("text.tif")), 0);
  Dataset flags(true);
  flags.newDataset(DatasetCoordinates(2, 2, 1, 1, 1), TARV_ELEMENT_TYPE_BOOL, DatasetWorldEmbedding());
  EXPECT_EQ(formats::writeTiffStack(&flags, dir.file("flags.tif")).message(), "a TIFF stack cannot hold bool elements");
}

Result<formats::OpenedFile> openStack(const std::string& path, bool lazy) {
  formats::ReadRequest request;
  request.format = formats::FileFormat::tiffStack;
  request.lazy = lazy;
  return formats::readDatasetFile(path, request);
}

TEST(TiffStackFormat, LazyReadingGivesTheStackPageByPage) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset(DatasetCoordinates(37, 21, 6, 1, 3), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, DatasetWorldEmbedding());
  std::mt19937 random(8);
  testing::fillRandomly(d, random, -30000, 30000);
  ASSERT_TRUE(formats::writeTiffStack(&d, dir.file("stack.tif")).ok());
  Result<formats::OpenedFile> lazy = openStack(dir.file("stack.tif"), true);
  ASSERT_TRUE(lazy.ok()) << lazy.status().toString();
  EXPECT_TRUE(lazy->lazy);
  Dataset* file = GetRawPtr(lazy->handle);
  EXPECT_EQ(file->getPlainElements(), nullptr) << "a file-backed dataset";
  ASSERT_EQ(file->getSize(), d.getSize());
  // One element of page 4, then every element, in a different order than memory's.
  EXPECT_EQ(file->getElement<short>(DatasetCoordinates(5, 6, 4, 0, 2)), d.getElement<short>(DatasetCoordinates(5, 6, 4, 0, 2)));
  for (int z = d.getSize().z - 1; z >= 0; --z)
    for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
      if (it.z == z) ASSERT_EQ(file->getElement<short>(DatasetCoordinates(it.x, it.y, it.z, it.t, it.c)), d.getElement<short>(it));
  EXPECT_TRUE(formats::blockReadStatus(file).ok());
  Result<formats::OpenedFile> whole = openStack(dir.file("stack.tif"), false);
  ASSERT_TRUE(whole.ok());
  EXPECT_FALSE(whole->lazy);
  EXPECT_NE(GetRawPtr(whole->handle)->getPlainElements(), nullptr);
}

TEST(TiffStackFormat, ALazyStackNamesThePageItCannotRead) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset(DatasetCoordinates(64, 64, 4, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_CHAR, DatasetWorldEmbedding());
  std::mt19937 random(9);
  testing::fillRandomly(d, random, 0, 255);
  ASSERT_TRUE(formats::writeTiffStack(&d, dir.file("stack.tif")).ok());
  Result<formats::OpenedFile> lazy = openStack(dir.file("stack.tif"), true);
  ASSERT_TRUE(lazy.ok());
  Dataset* file = GetRawPtr(lazy->handle);
  EXPECT_EQ(file->getElement<int>(DatasetCoordinates(1, 1, 0, 0, 0)), d.getElement<int>(DatasetCoordinates(1, 1, 0, 0, 0)));
  // The file shrinks under the open dataset: the pages not yet read fail, by name.
  const std::string bytes = readBytes(dir.file("stack.tif"));
  writeBytes(dir.file("stack.tif"), bytes.substr(0, 200));
  (void)file->getElement<int>(DatasetCoordinates(1, 1, 3, 0, 0));
  const Status failure = formats::blockReadStatus(file);
  EXPECT_FALSE(failure.ok());
  EXPECT_NE(failure.message().find("page 3"), std::string::npos) << failure.message();
}

}  // namespace
}  // namespace tarv
