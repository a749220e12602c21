#include "core/TransformationMatrix.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using tarv::Matrix;
using tarv::TransformationMatrix;
using tarv::Vector3D;
using tarv::WorldCoordinates;

namespace {

bool isIdentity(const TransformationMatrix& m, double tolerance) {
  for (std::size_t r = 0; r < 4; ++r)
    for (std::size_t c = 0; c < 4; ++c)
      if (std::fabs(m(r, c) - (r == c ? 1.0 : 0.0)) > tolerance) return false;
  return true;
}

}  // namespace

TEST(TransformationMatrixTest, DefaultIsIdentity) {
  const TransformationMatrix m;
  for (std::size_t r = 0; r < 4; ++r)
    for (std::size_t c = 0; c < 4; ++c) EXPECT_EQ(m(r, c), r == c ? 1.0 : 0.0) << "element (" << r << ", " << c << ")";
  EXPECT_TRUE(isIdentity(m, 0.0));
}

TEST(TransformationMatrixTest, MakeFunctionsReplaceTheWholeMatrix) {
  TransformationMatrix m;
  m.makeTranslation(Vector3D(1, 2, 3));
  m.makeScaling(Vector3D(2, 3, 4));
  EXPECT_EQ(m(0, 0), 2.0);
  EXPECT_EQ(m(1, 1), 3.0);
  EXPECT_EQ(m(2, 2), 4.0);
  EXPECT_EQ(m(3, 3), 1.0);
  EXPECT_EQ(m(0, 3), 0.0) << "the former translation must be gone";
  EXPECT_EQ(m(1, 3), 0.0);
  EXPECT_EQ(m(2, 3), 0.0);

  m.makeTranslation(Vector3D(5, 6, 7));
  EXPECT_EQ(m(0, 0), 1.0) << "the former scaling must be gone";
  EXPECT_EQ(m(0, 3), 5.0);
  EXPECT_EQ(m(1, 3), 6.0);
  EXPECT_EQ(m(2, 3), 7.0);

  m.makeIdentity();
  EXPECT_EQ(m, TransformationMatrix());
}

TEST(TransformationMatrixTest, MakeRotationColumnsAreNormalisedArgumentsAndCross) {
  TransformationMatrix m;
  m.makeTranslation(Vector3D(9, 9, 9));
  m.makeRotation(Vector3D(0, 2, 0), Vector3D(0, 0, -5));
  const Vector3D expected[3] = {{0, 1, 0}, {0, 0, -1}, {-1, 0, 0}};
  for (std::size_t c = 0; c < 3; ++c)
    for (std::size_t r = 0; r < 3; ++r)
      EXPECT_EQ(m(r, c), expected[c][static_cast<int>(r)]) << "element (" << r << ", " << c << ")";
  for (std::size_t k = 0; k < 3; ++k) {
    EXPECT_EQ(m(3, k), 0.0);
    EXPECT_EQ(m(k, 3), 0.0) << "no translation may remain";
  }
  EXPECT_EQ(m(3, 3), 1.0);
}

TEST(TransformationMatrixTest, MakeRotationNormalisesTheCrossOfObliqueAxes) {
  TransformationMatrix m;
  m.makeRotation(Vector3D(1, 1, 0), Vector3D(0, 1, 1));
  const Vector3D third(m(0, 2), m(1, 2), m(2, 2));
  EXPECT_NEAR(third.getLength(), 1.0, 1e-15);
  EXPECT_NEAR(third.x, 1.0 / std::sqrt(3.0), 1e-15);
  EXPECT_NEAR(third.y, -1.0 / std::sqrt(3.0), 1e-15);
  EXPECT_NEAR(third.z, 1.0 / std::sqrt(3.0), 1e-15);
  EXPECT_NEAR(m(0, 0), std::sqrt(0.5), 1e-15);
  EXPECT_NEAR(m(2, 1), std::sqrt(0.5), 1e-15);
}

TEST(TransformationMatrixTest, ConcatenateAppliesTheArgumentAfterTheCurrentTransformation) {
  TransformationMatrix scaling;
  scaling.makeScaling(Vector3D(2, 2, 2));
  TransformationMatrix translation;
  translation.makeTranslation(Vector3D(1, 0, 0));

  TransformationMatrix scaleThenTranslate = scaling;
  scaleThenTranslate.concatenate(translation);
  WorldCoordinates p(1, 1, 1, 0);
  scaleThenTranslate.transform(p);
  EXPECT_EQ(p, WorldCoordinates(3, 2, 2, 0)) << "expected (1,1,1)*2 + (1,0,0)";

  TransformationMatrix translateThenScale = translation;
  translateThenScale.concatenate(scaling);
  WorldCoordinates q(1, 1, 1, 0);
  translateThenScale.transform(q);
  EXPECT_EQ(q, WorldCoordinates(4, 2, 2, 0)) << "expected ((1,1,1) + (1,0,0))*2";
}

TEST(TransformationMatrixTest, ScalingOrientationTranslationGivesVoxelToWorld) {
  const Vector3D spacing(0.5, 2.0, 3.0);
  const Vector3D origin(10, -20, 30);
  TransformationMatrix scaling, orientation, translation;
  scaling.makeScaling(spacing);
  orientation.makeRotation(Vector3D(0, 1, 0), Vector3D(-1, 0, 0));  // x -> y, y -> -x, z -> z
  translation.makeTranslation(origin);

  TransformationMatrix voxelToWorld;
  voxelToWorld.concatenate(scaling);
  voxelToWorld.concatenate(orientation);
  voxelToWorld.concatenate(translation);

  WorldCoordinates v(4, 5, 6, 7);
  voxelToWorld.transform(v);
  // origin + orientation * (spacing . v) = origin + orientation * (2, 10, 18) = origin + (-10, 2, 18)
  EXPECT_EQ(v, WorldCoordinates(0, -18, 48, 7));
}

TEST(TransformationMatrixTest, TransformWorldCoordinatesLeavesTimeAlone) {
  TransformationMatrix m;
  m.makeTranslation(Vector3D(1, 2, 3));
  WorldCoordinates p(0, 0, 0, 42.5);
  m.transform(p);
  EXPECT_EQ(p, WorldCoordinates(1, 2, 3, 42.5));
}

TEST(TransformationMatrixTest, TransformVectorIgnoresTranslation) {
  TransformationMatrix m;
  m.makeScaling(Vector3D(2, 3, 4));
  TransformationMatrix translation;
  translation.makeTranslation(Vector3D(100, 200, 300));
  m.concatenate(translation);

  Vector3D direction(1, 1, 1);
  m.transform(direction);
  EXPECT_EQ(direction, Vector3D(2, 3, 4)) << "a direction must not be translated";

  WorldCoordinates point(1, 1, 1, 0);
  m.transform(point);
  EXPECT_EQ(point, WorldCoordinates(102, 203, 304, 0)) << "a point must be translated";
}

TEST(TransformationMatrixTest, InverseUndoesTheTransformation) {
  TransformationMatrix scaling, orientation, translation;
  scaling.makeScaling(Vector3D(0.7, 1.3, 2.5));
  orientation.makeRotation(Vector3D(1, 1, 0), Vector3D(-1, 1, 0.5));
  translation.makeTranslation(Vector3D(-12, 7.5, 3));
  TransformationMatrix forward;
  forward.concatenate(scaling);
  forward.concatenate(orientation);
  forward.concatenate(translation);

  TransformationMatrix inverse = forward;
  EXPECT_TRUE(inverse.makeInverse());
  WorldCoordinates p(3, -4, 5, 1);
  forward.transform(p);
  inverse.transform(p);
  EXPECT_NEAR(p.x, 3, 1e-12);
  EXPECT_NEAR(p.y, -4, 1e-12);
  EXPECT_NEAR(p.z, 5, 1e-12);
  EXPECT_EQ(p.t, 1);

  TransformationMatrix product = forward;
  product.concatenate(inverse);
  EXPECT_TRUE(isIdentity(product, 1e-12));
}

TEST(TransformationMatrixTest, InverseNeedsPivoting) {
  // A zero on the diagonal: elimination without row exchanges would divide by zero.
  TransformationMatrix m;
  m(0, 0) = 0;
  m(0, 1) = 1;
  m(1, 0) = 1;
  m(1, 1) = 0;
  m(0, 3) = 5;
  TransformationMatrix inverse = m;
  ASSERT_TRUE(inverse.makeInverse());
  TransformationMatrix product = m;
  product.concatenate(inverse);
  EXPECT_TRUE(isIdentity(product, 0.0));
}

TEST(TransformationMatrixTest, InverseOfRandomMatrices) {
  const unsigned seed = 20240611;
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> value(-10.0, 10.0);
  for (int round = 0; round < 200; ++round) {
    TransformationMatrix m;
    for (std::size_t r = 0; r < 4; ++r)
      for (std::size_t c = 0; c < 4; ++c) m(r, c) = value(random);
    TransformationMatrix inverse = m;
    if (!inverse.makeInverse()) continue;  // singular by chance: nothing to check
    Matrix<4, 4, double> product = inverse * static_cast<const Matrix<4, 4, double>&>(m);
    for (std::size_t r = 0; r < 4; ++r)
      for (std::size_t c = 0; c < 4; ++c)
        ASSERT_NEAR(product(r, c), r == c ? 1.0 : 0.0, 1e-8)
            << "seed " << seed << ", round " << round << ", element (" << r << ", " << c << ")";
  }
}

TEST(TransformationMatrixTest, SingularMatrixDoesNotCrash) {
  TransformationMatrix zeroScaling;
  zeroScaling.makeScaling(Vector3D(1, 0, 1));
  const TransformationMatrix before = zeroScaling;
  EXPECT_FALSE(zeroScaling.makeInverse()) << "a singular matrix has no inverse";
  EXPECT_EQ(zeroScaling, before) << "a singular matrix is left unchanged";

  TransformationMatrix nan;
  nan(1, 2) = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(nan.makeInverse());

  TransformationMatrix allZero;
  allZero(0, 0) = allZero(1, 1) = allZero(2, 2) = allZero(3, 3) = 0.0;
  EXPECT_FALSE(allZero.makeInverse());
}

TEST(TransformationMatrixTest, ConstructionFromMatrix) {
  Matrix<4, 4, double> raw;
  raw(0, 3) = 4.0;
  raw(3, 3) = 1.0;
  const TransformationMatrix m(raw);
  EXPECT_EQ(m(0, 3), 4.0);
  EXPECT_EQ(m(0, 0), 0.0);
  const Matrix<4ul, 4ul, double>& asMatrix = m;
  EXPECT_TRUE(asMatrix == raw);
}
