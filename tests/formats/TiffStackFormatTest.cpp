// TIFF stacks: every element type the format holds, with components, written and read back;
// truncated files and other refusals.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "TestSupport.h"
#include "elementtypes/ElementTypeNames.h"
#include "formats/TiffStackFormat.h"

namespace tarv {
namespace {

using testing::readBytes;
using testing::TemporaryDirectory;
using testing::writeBytes;

TEST(TiffStackFormat, EveryHeldElementTypeAndComponentCountRoundTrips) {
  TemporaryDirectory dir;
  std::mt19937 random(3);
  int written = 0;
  for (int id = TARV_ELEMENT_TYPE_BOOL; id <= TARV_ELEMENT_TYPE_LONG_DOUBLE; ++id)
    for (int components : {1, 2, 3, 4}) {
      const auto type = static_cast<TARVElementType>(id);
      SCOPED_TRACE(std::string(elementTypeName(type)) + ", components " + std::to_string(components));
      Dataset d(true);
      d.newDataset(DatasetCoordinates(13, 7, 3, 1, components), type, DatasetWorldEmbedding());
      testing::fillRandomly(d, random, d.hasFloatingPointElementType() ? -100.0 : 0.0, 100.0);
      const std::string path = dir.file("stack.tif");
      const Status status = formats::writeTiffStack(&d, path);
      if (!formats::tiffStackHoldsElementType(type)) {
        EXPECT_EQ(status.code(), StatusCode::unsupported);
        continue;
      }
      ASSERT_TRUE(status.ok()) << status.toString();
      ++written;
      EXPECT_EQ(formats::countTiffPages(path), 3);
      Result<DatasetHandle> back = formats::readTiffStack(path);
      ASSERT_TRUE(back.ok()) << back.status().toString();
      Dataset* r = GetRawPtr(*back);
      ASSERT_EQ(r->getSize(), d.getSize());
      ASSERT_EQ(r->getElementType(), type);
      for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
        ASSERT_EQ(r->getElement<double>(it), d.getElement<double>(it));
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
