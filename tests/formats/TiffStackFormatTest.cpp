// TIFF stacks: every element type the format holds, with components, written and read back;
// truncated files and other refusals.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "FormatTestSupport.h"
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

}  // namespace
}  // namespace tarv
