#include "dataset/DatasetWorldEmbedding.h"

#include <gtest/gtest.h>

#include "core/Mathematics.h"

using namespace tarv;

TEST(DatasetWorldEmbeddingTest, DefaultMapsVoxelsToTheSameWorldPointAndBack) {
  DatasetWorldEmbedding e;
  const WorldCoordinates w = e.voxelToWorld(DatasetCoordinates(3, 4, 5, 0, 0));
  EXPECT_EQ(w.x, 3.0);
  EXPECT_EQ(w.y, 4.0);
  EXPECT_EQ(w.z, 5.0);
  EXPECT_EQ(e.worldToVoxel(w), DatasetCoordinates(3, 4, 5, 0, 0));
  const DatasetCoordinates half = e.worldToVoxel(WorldCoordinates(2.5, -2.5, 0, 0));
  EXPECT_EQ(half.x, Mathematics::round(2.5));
  EXPECT_EQ(half.x, 3);
  EXPECT_EQ(half.y, -3);
}

TEST(DatasetWorldEmbeddingTest, WorldIsOriginPlusOrientedScaledVoxel) {
  DatasetWorldEmbedding e(WorldCoordinates(10, 20, 30, 0), WorldCoordinates(2, 3, 4, 1), Vector3D(0, 1, 0),
                          Vector3D(-1, 0, 0));
  // voxel x runs along world y, voxel y along world -x, voxel z along world z.
  const WorldCoordinates w = e.voxelToWorld(DatasetCoordinates(1, 1, 1, 7, 0));
  EXPECT_DOUBLE_EQ(w.x, 10 - 3);
  EXPECT_DOUBLE_EQ(w.y, 20 + 2);
  EXPECT_DOUBLE_EQ(w.z, 30 + 4);
  EXPECT_EQ(w.t, 7.0) << "t passes unchanged";
  const WorldCoordinates v = e.worldToExactVoxel(w);
  EXPECT_NEAR(v.x, 1, 1e-12);
  EXPECT_NEAR(v.y, 1, 1e-12);
  EXPECT_NEAR(v.z, 1, 1e-12);
  const WorldCoordinates exact = e.exactVoxelToWorld(WorldCoordinates(0.5, 0, 0, 0));
  EXPECT_DOUBLE_EQ(exact.y, 21);
  Vector3D first, second;
  e.getDirectionCosines(first, second);
  EXPECT_EQ(first, Vector3D(0, 1, 0));
  EXPECT_EQ(second, Vector3D(-1, 0, 0));
  EXPECT_EQ(e.voxelToWorld(DatasetCoordinates(0, 0, 0, 0, 0)).x, 10.0) << "voxel 0 maps to the origin exactly";
}

TEST(DatasetWorldEmbeddingTest, EqualityComparesOnlyTheMatrix) {
  DatasetWorldEmbedding a(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(1, 1, 1, 1));
  DatasetWorldEmbedding b(WorldCoordinates(0, 0, 0, 5), WorldCoordinates(1, 1, 1, 9));
  EXPECT_TRUE(a == b) << "t spacing and t origin do not enter the matrix";
  b.setVoxelSpacing(WorldCoordinates(1, 1, 1.5, 9));
  EXPECT_TRUE(a != b);
}

TEST(DatasetWorldEmbeddingTest, MatrixAsMasterDerivesTheParts) {
  DatasetWorldEmbedding e;
  TransformationMatrix m;
  m.makeScaling(Vector3D(2, 3, 4));
  e.setVoxel2WorldMatrix(m);
  EXPECT_EQ(e.getVoxelSpacing(), WorldCoordinates(2, 3, 4, 0)) << "t spacing becomes 0";
  EXPECT_TRUE(e.getOrientation() == TransformationMatrix());
  EXPECT_EQ(e.getDatasetOrigin(), WorldCoordinates(0, 0, 0, 0));
  const WorldCoordinates v = e.worldToExactVoxel(WorldCoordinates(4, 9, 16, 0));
  EXPECT_DOUBLE_EQ(v.x, 2);
  EXPECT_DOUBLE_EQ(v.y, 3);
  EXPECT_DOUBLE_EQ(v.z, 4);

  TransformationMatrix shifted;
  shifted.makeTranslation(Vector3D(5, 6, 7));
  e.setVoxel2WorldMatrix(shifted);
  EXPECT_EQ(e.getDatasetOrigin(), WorldCoordinates(5, 6, 7, 0));
}

TEST(DatasetWorldEmbeddingTest, SettersResyncAndResetRestoresDefaults) {
  DatasetWorldEmbedding e;
  e.setDatasetOrigin(WorldCoordinates(1, 1, 1, 0));
  e.setVoxelSpacing(WorldCoordinates(2, 2, 2, 1));
  EXPECT_EQ(e.voxelToWorld(DatasetCoordinates(1, 0, 0, 0, 0)).x, 3.0);
  TransformationMatrix flip;
  flip.makeRotation(Vector3D(-1, 0, 0), Vector3D(0, 1, 0));
  e.setOrientation(flip);
  EXPECT_EQ(e.voxelToWorld(DatasetCoordinates(1, 0, 0, 0, 0)).x, -1.0);
  e.setDirectionCosines(Vector3D(1, 0, 0), Vector3D(0, 1, 0));
  EXPECT_EQ(e.voxelToWorld(DatasetCoordinates(1, 0, 0, 0, 0)).x, 3.0);
  e.reset();
  EXPECT_TRUE(e == DatasetWorldEmbedding());
  EXPECT_EQ(e.getVoxelSpacing(), WorldCoordinates(1, 1, 1, 1));
  DatasetWorldEmbedding copy(e);
  EXPECT_TRUE(copy == e);
}

TEST(DatasetWorldEmbeddingTest, SingularMatrixDoesNotCrash) {
  DatasetWorldEmbedding e(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(0, 1, 1, 1));
  (void)e.worldToVoxel(WorldCoordinates(1, 2, 3, 0));
  EXPECT_EQ(e.voxelToWorld(DatasetCoordinates(5, 1, 0, 0, 0)).x, 0.0);
}
