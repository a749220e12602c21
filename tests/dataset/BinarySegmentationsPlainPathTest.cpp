#include "dataset/BinarySegmentations.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>

#include "dataset/Dataset.h"

using tarv::BinarySegmentations;
using tarv::Dataset;
using tarv::DatasetCoordinates;
using tarv::DatasetWorldEmbedding;
using tarv::TARVElementType;
using tarv::WorldCoordinates;

namespace {

// Not a plain in-memory dataset: the segmentation functions read it through element access.
class SubclassedDataset : public Dataset {
public:
  SubclassedDataset() : Dataset(true) {}
};

bool sameBits(double a, double b) { return std::memcmp(&a, &b, sizeof(double)) == 0; }

// Sparse random blobs over every time step and component, NaN among the floating-point values.
void fill(Dataset& d, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
    const double u = uniform(random);
    double v = 0.0;
    if (u < 0.03 && d.hasFloatingPointElementType()) v = std::numeric_limits<double>::quiet_NaN();
    else if (u < 0.25) v = 1.0 + std::floor(uniform(random) * 3.0);
    else if (u < 0.3) v = 0.25;  // reads as false in integer types, non-zero in floating point
    d.setElement<double>(it, v);
  }
}

TEST(BinarySegmentationsPlainPathTest, PlainDatasetsGiveTheBitsOfElementAccessInEveryTimeStepAndComponent) {
  const TARVElementType types[] = {tarv::TARV_ELEMENT_TYPE_BOOL, tarv::TARV_ELEMENT_TYPE_SIGNED_CHAR,
                                   tarv::TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, tarv::TARV_ELEMENT_TYPE_SIGNED_LONG_INT,
                                   tarv::TARV_ELEMENT_TYPE_FLOAT, tarv::TARV_ELEMENT_TYPE_LONG_DOUBLE};
  const DatasetCoordinates size(7, 5, 4, 3, 2);  // odd sizes: bool rows start inside a byte
  const DatasetWorldEmbedding embedding(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(0.7, 1.1, 2.5, 1));
  unsigned seed = 1;
  for (TARVElementType type : types) {
    Dataset plainA(true), plainB(true);
    SubclassedDataset subA, subB;
    for (Dataset* d : {&plainA, &plainB, static_cast<Dataset*>(&subA), static_cast<Dataset*>(&subB)})
      d->newDataset(size, type, embedding);
    fill(plainA, seed);
    fill(subA, seed++);
    fill(plainB, seed);
    fill(subB, seed++);
    for (int t = 0; t < size.t; ++t) {
      SCOPED_TRACE(testing::Message() << "type " << type << ", t " << t);
      EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCount(&plainA, t),
                BinarySegmentations::getSegmentationVoxelCount(&subA, t));
      EXPECT_EQ(BinarySegmentations::getSharedSegmentationVoxelCount(&plainA, &plainB, t),
                BinarySegmentations::getSharedSegmentationVoxelCount(&subA, &subB, t));
      EXPECT_EQ(BinarySegmentations::getSegmentationVoxelCountDifference(&plainA, &plainB, t),
                BinarySegmentations::getSegmentationVoxelCountDifference(&subA, &subB, t));
      EXPECT_TRUE(sameBits(BinarySegmentations::getHausdorffDistance(&plainA, &plainB, t),
                           BinarySegmentations::getHausdorffDistance(&subA, &subB, t)));
      EXPECT_TRUE(sameBits(BinarySegmentations::getAverageBorderDistance(&plainA, &plainB, t),
                           BinarySegmentations::getAverageBorderDistance(&subA, &subB, t)));
      EXPECT_TRUE(sameBits(BinarySegmentations::getSquaredSegmentationToSegmentationDistance(&plainA, &plainB, t),
                           BinarySegmentations::getSquaredSegmentationToSegmentationDistance(&subA, &subB, t)));
      for (int c = 0; c < size.c; ++c) {
        const DatasetCoordinates p(3, 2, 1, t, c);
        EXPECT_TRUE(sameBits(BinarySegmentations::getSquaredPointSegmentationDistance(&plainA, p),
                             BinarySegmentations::getSquaredPointSegmentationDistance(&subA, p)));
        EXPECT_TRUE(sameBits(BinarySegmentations::getSquaredBorderPointSegmentationDistance(&plainA, p),
                             BinarySegmentations::getSquaredBorderPointSegmentationDistance(&subA, p)));
      }
    }
  }
}

}  // namespace
