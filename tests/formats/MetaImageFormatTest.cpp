// MetaImage files: every element type the format holds, with time steps, components and an
// oblique embedding, written and read back; the name MetaIO would change.
#include <gtest/gtest.h>

#include <filesystem>

#include "FormatTestSupport.h"
#include "core/Vector3D.h"
#include "formats/MetaImageFormat.h"

namespace tarv {
namespace {

using testing::TemporaryDirectory;

TEST(MetaImageFormat, EveryHeldElementTypeRoundTripsExactly) {
  TemporaryDirectory dir;
  const DatasetWorldEmbedding embedding(WorldCoordinates(-3.5, 12.0, 40.25, 1.0), WorldCoordinates(0.5, 0.8, 2.0, 3.0),
                                        Vector3D(0.6, 0.8, 0.0), Vector3D(-0.8, 0.6, 0.0));
  const std::string path = dir.file("volume.mha");
  const int written = testing::roundTripEveryElementType(
      DatasetCoordinates(6, 5, 3, 2, 2), embedding, formats::metaImageHoldsElementType,
      [&](Dataset& d) { return formats::writeMetaImageFile(&d, path); }, [&] { return formats::readMetaImageFile(path); },
      {}, [](Dataset& d, Dataset& r) {
        const TransformationMatrix& m = r.getWorldEmbedding().getVoxel2WorldMatrix();
        const TransformationMatrix& n = d.getWorldEmbedding().getVoxel2WorldMatrix();
        for (int row = 0; row < 3; ++row)
          for (int column = 0; column < 4; ++column) EXPECT_NEAR(m(row, column), n(row, column), 1e-9);
      });
  EXPECT_EQ(written, 10);
}

// A temporary name without .mha is written under another and renamed: nothing else is left.
TEST(MetaImageFormat, AnyFileNameIsWrittenInPlace) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset(DatasetCoordinates(3, 2, 1, 1, 1), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, DatasetWorldEmbedding());
  ASSERT_TRUE(formats::writeMetaImageFile(&d, dir.file(".out.mha.tmp-123")).ok());
  EXPECT_TRUE(std::filesystem::exists(dir.file(".out.mha.tmp-123")));
  EXPECT_FALSE(std::filesystem::exists(dir.file(".out.mha.tmp-123.mha")));
  EXPECT_TRUE(formats::readMetaImageFile(dir.file(".out.mha.tmp-123")).ok());
}

}  // namespace
}  // namespace tarv
