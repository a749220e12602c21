// MetaImage files: every element type the format holds, with time steps, components and an
// oblique embedding, written and read back; the name MetaIO would change.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "FormatTestSupport.h"
#include "core/Vector3D.h"
#include "formats/MetaImageFormat.h"

namespace tarv {
namespace {

using testing::TemporaryDirectory;

// A MetaImage file of four int16 voxels with the header lines given.
std::string fourVoxels(const std::string& lines) {
  return "ObjectType = Image\n" + lines + "ElementType = MET_SHORT\nElementDataFile = LOCAL\n" + std::string(8, '\1');
}

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

// Directions longer than one scale their axis (the spacing takes the length); directions without
// length place no voxel and are refused.
TEST(MetaImageFormat, DirectionLengthsGoToTheSpacing) {
  TemporaryDirectory dir;
  testing::writeBytes(dir.file("long.mha"), fourVoxels("NDims = 2\nDimSize = 2 2\nElementSpacing = 0.5 3\n"
                                                       "TransformMatrix = 0 2 -1 0\nOffset = 1 2\n"));
  Result<DatasetHandle> read = formats::readMetaImageFile(dir.file("long.mha"));
  ASSERT_TRUE(read.ok()) << read.status().toString();
  const TransformationMatrix& m = GetRawPtr(*read)->getWorldEmbedding().getVoxel2WorldMatrix();
  // Voxel (1, 0) is 0.5 x (0, 2) from the offset, voxel (0, 1) 3 x (-1, 0).
  EXPECT_DOUBLE_EQ(m(0, 0), 0.0);
  EXPECT_DOUBLE_EQ(m(1, 0), 1.0);
  EXPECT_DOUBLE_EQ(m(0, 1), -3.0);
  EXPECT_DOUBLE_EQ(m(1, 1), 0.0);
  EXPECT_DOUBLE_EQ(GetRawPtr(*read)->getWorldEmbedding().getVoxelSpacing().x, 1.0);

  testing::writeBytes(dir.file("none.mha"), fourVoxels("NDims = 1\nDimSize = 4\nTransformMatrix = 0\n"));
  EXPECT_EQ(formats::readMetaImageFile(dir.file("none.mha")).status().message(),
            "a MetaImage header whose direction of axis 0 has no length");
}

}  // namespace
}  // namespace tarv
