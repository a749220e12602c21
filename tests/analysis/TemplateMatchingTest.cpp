#include "dataset/Dataset.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <numbers>
#include <random>

#include "TestSupport.h"

using namespace tarv;
using tarv::testing::C;
using tarv::testing::embedding;
using tarv::testing::fillRandomly;

// ---- template matching ----

TEST(DatasetAnalysisTest, TemplateLargerThanTheImageGivesOutside) {
  Dataset image(true);
  image.newDataset<float>(C(4, 4, 2, 1, 1), DatasetWorldEmbedding());
  image.setAllElementsValue(1);
  Dataset templ(true);
  templ.newDataset<float>(C(3, 5, 1, 1, 1), DatasetWorldEmbedding());
  templ.setAllElementsValue(1);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x) {
      EXPECT_EQ(image.correlatedElement(C(x, y, 0), &templ, C(0, 0, 0), -2), -2);
      EXPECT_EQ(image.cosSimilarityElement(C(x, y, 0), &templ, C(0, 0, 0), -2), -2);
      EXPECT_EQ(image.vectorSimilarityElement(C(x, y, 0), &templ, C(0, 0, 0), -2), -2);
    }
  EXPECT_EQ(image.correlatedElement(C(0, 0, 0), nullptr, C(0, 0, 0), -2), -2);
}

TEST(DatasetAnalysisTest, SimilarityOverAnAllZeroPatch) {
  Dataset image(true);
  image.newDataset<int>(C(6, 6, 1, 1, 1), DatasetWorldEmbedding());
  image.setAllElementsValue(0);
  image.setElement<int>(C(5, 5, 0), 3);
  Dataset templ(true);
  templ.newDataset<double>(C(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  templ.setAllElementsValue(0.5);
  EXPECT_EQ(image.cosSimilarityElement(C(1, 1, 0), &templ, C(0, 0, 0), -4), 0.0);
  EXPECT_EQ(image.vectorSimilarityElement(C(1, 1, 0), &templ, C(0, 0, 0), -4), -4.0);
  EXPECT_EQ(image.correlatedElement(C(1, 1, 0), &templ, C(0, 0, 0), -4), 0.0);
}

TEST(DatasetAnalysisTest, SimilarityMeasuresFollowTheirFormulas) {
  const unsigned seed = 31;
  std::mt19937 random(seed);
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  Dataset image(true);
  image.newDataset<double>(C(7, 6, 3, 1, 1), DatasetWorldEmbedding());
  fillRandomly(image, random, -1, 1);
  Dataset templ(true);
  templ.newDataset<float>(C(3, 2, 2, 1, 1), DatasetWorldEmbedding());
  fillRandomly(templ, random, -1, 1);
  templ.normalizeVectorLength();
  const DatasetCoordinates anchor(1, 1, 0, 0, 0);
  for (DatasetCoordinatesIterator c = image.getStartCoordinatesIterator(); c.valid; image.incrementCoordinatesIterator(c)) {
    const DatasetCoordinates d = static_cast<DatasetCoordinates&>(c) - anchor;
    const bool fits = d.x >= 0 && d.y >= 0 && d.z >= 0 && d.x <= 4 && d.y <= 4 && d.z <= 1;
    double dot = 0.0;
    double squares = 0.0;
    if (fits)
      for (int z = 0; z < 2; ++z)
        for (int y = 0; y < 2; ++y)
          for (int x = 0; x < 3; ++x) {
            const double a = image.getElement<double>(d + C(x, y, z));
            const double b = templ.getElement<double>(C(x, y, z));
            dot += a * b;
            squares += a * a;
          }
    const double correlated = image.correlatedElement(c, &templ, anchor, 9);
    const double cosine = image.cosSimilarityElement(c, &templ, anchor, 9);
    const double vector = image.vectorSimilarityElement(c, &templ, anchor, 9);
    if (!fits) {
      EXPECT_EQ(correlated, 9);
      EXPECT_EQ(cosine, 9);
      EXPECT_EQ(vector, 9);
      continue;
    }
    EXPECT_NEAR(correlated, dot, 1e-12) << c;
    EXPECT_NEAR(cosine, (dot / std::sqrt(squares) + 1.0) * 0.5, 1e-12) << c;
    EXPECT_NEAR(vector, (std::numbers::pi - std::acos(dot / std::sqrt(squares))) / std::numbers::pi, 1e-12) << c;
    EXPECT_GE(cosine, 0.0);
    EXPECT_LE(cosine, 1.0);
  }
}

TEST(DatasetAnalysisTest, TemplateReachingOutsideInTimeOrComponentGivesOutside) {
  Dataset image(true);
  image.newDataset<int>(C(4, 4, 1, 2, 1), DatasetWorldEmbedding());
  image.setAllElementsValue(1);
  Dataset templ(true);
  templ.newDataset<int>(C(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  templ.setAllElementsValue(1);
  EXPECT_EQ(image.correlatedElement(C(1, 1, 0, 1), &templ, C(0, 0, 0), -1), 4.0);
  EXPECT_EQ(image.correlatedElement(C(1, 1, 0, 2), &templ, C(0, 0, 0), -1), -1.0);
  EXPECT_EQ(image.correlatedElement(C(1, 1, 0, 0, 1), &templ, C(0, 0, 0), -1), -1.0);
  EXPECT_EQ(image.correlatedElement(C(1, 1, 0, std::numeric_limits<int>::min()), &templ, C(0, 0, 0, 5), -1), -1.0);
}

TEST(DatasetAnalysisTest, MatchingDatasetsHoldTheElementFunctions) {
  Dataset image(true);
  image.newDataset<float>(C(5, 4, 1, 1, 1), embedding(3, 4, 5, 0.5, 0.5, 1));
  std::mt19937 random(8);
  fillRandomly(image, random, 0, 2);
  Dataset templ(true);
  templ.newDataset<float>(C(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  templ.setAllElementsValue(0.5);
  const DatasetCoordinates anchor(0, 1, 0, 0, 0);
  std::unique_ptr<Dataset> correlation(image.correlate(&templ, anchor, -1));
  std::unique_ptr<Dataset> cosine(image.cosSimilarity(&templ, anchor, -1));
  std::unique_ptr<Dataset> vector(image.vectorSimilarity(&templ, anchor, -1));
  for (Dataset* result : {correlation.get(), cosine.get(), vector.get()}) {
    ASSERT_NE(result, nullptr);
    EXPECT_TRUE(result->isCompatible(&image));
    EXPECT_EQ(result->getElementType(), TARV_ELEMENT_TYPE_FLOAT);
  }
  for (DatasetCoordinatesIterator c = image.getStartCoordinatesIterator(); c.valid; image.incrementCoordinatesIterator(c)) {
    EXPECT_EQ(correlation->getElement<float>(c), static_cast<float>(image.correlatedElement(c, &templ, anchor, -1)));
    EXPECT_EQ(cosine->getElement<float>(c), static_cast<float>(image.cosSimilarityElement(c, &templ, anchor, -1)));
    EXPECT_EQ(vector->getElement<float>(c), static_cast<float>(image.vectorSimilarityElement(c, &templ, anchor, -1)));
  }

  Dataset integers(true);
  integers.newDataset<int>(C(3, 3, 1, 1, 1), DatasetWorldEmbedding());
  integers.setAllElementsValue(2);
  Dataset signs(true);
  signs.newDataset<float>(C(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  signs.setAllElementsValue(0.5);
  signs.setElement<float>(C(1, 0, 0), -0.5f);
  // Patch (2, 2, 2, 2) under (0.5, -0.5, 0.5, 0.5): (2 / 4 + 1) / 2 = 0.75.
  EXPECT_EQ(integers.cosSimilarityElement(C(0, 0, 0), &signs, C(0, 0, 0), 5), 0.75);
  std::unique_ptr<Dataset> truncated(integers.cosSimilarity(&signs, C(0, 0, 0), 5));
  EXPECT_EQ(truncated->getElement<int>(C(0, 0, 0)), 0) << "a similarity in 0..1 truncates to 0";
  EXPECT_EQ(truncated->getElement<int>(C(2, 2, 0)), 5) << "the template does not fit there";

  Dataset empty(true);
  std::unique_ptr<Dataset> none(empty.correlate(&templ, C(0, 0, 0), 0));
  ASSERT_NE(none, nullptr);
  EXPECT_FALSE(none->hasData());
}
