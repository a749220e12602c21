#include "dataset/DatasetHandle.h"

#include <gtest/gtest.h>

#include <regex>

using namespace tarv;

namespace {

int deletions = 0;

class TrackedDataset : public Dataset {
public:
  TrackedDataset() : Dataset(true) {}
  ~TrackedDataset() override { ++deletions; }
};

}  // namespace

TEST(DatasetHandleTest, SelfAssignmentKeepsTheDatasetAlive) {
  deletions = 0;
  DatasetHandle h(new TrackedDataset());
  h = h;
  Dataset* raw = GetRawPtr(h);
  h = raw;
  EXPECT_EQ(deletions, 0);
  EXPECT_EQ(GetRawPtr(h), raw);
  EXPECT_TRUE(raw->isRefered());
}

TEST(DatasetHandleTest, LastHandleDeletes) {
  deletions = 0;
  auto* first = new DatasetHandle(new TrackedDataset());
  auto* second = new DatasetHandle(*first);
  EXPECT_EQ(GetRawPtr(*first), GetRawPtr(*second));
  delete first;
  EXPECT_EQ(deletions, 0) << "the second handle still refers to the dataset";
  delete second;
  EXPECT_EQ(deletions, 1);
}

TEST(DatasetHandleTest, AssigningNullReleasesTheDataset) {
  deletions = 0;
  DatasetHandle h(new TrackedDataset());
  h = nullptr;
  EXPECT_EQ(deletions, 1);
  EXPECT_EQ(GetRawPtr(h), nullptr);
  DatasetHandle empty;
  EXPECT_EQ(GetRawPtr(empty), nullptr);
}

TEST(DatasetHandleTest, ReassignmentMovesTheReference) {
  deletions = 0;
  DatasetHandle a(new TrackedDataset());
  DatasetHandle b(new TrackedDataset());
  a = b;
  EXPECT_EQ(deletions, 1) << "a's first dataset had no other owner";
  EXPECT_EQ(GetRawPtr(a), GetRawPtr(b));
}

TEST(DatasetHandleTest, InitialisationReturnsZero) {
  EXPECT_EQ(tarv_init_dataset(), 0);
  EXPECT_EQ(tarv_init_dataset(), 0);
}

TEST(DatasetHandleTest, BannerHasTheLibraryLineAndTheNotice) {
  testing::internal::CaptureStderr();
  tarv_load_dataset_message();
  const std::string text = testing::internal::GetCapturedStderr();
  const std::regex first(
      "^Tarvex \\(TARV\\), Version 2\\.1\\.0, [^\n]+, Library support: CGAL VTK SSL, built on "
      "[A-Z][a-z]{2} [ 0-9][0-9] [0-9]{4} at [0-9]{2}:[0-9]{2}:[0-9]{2}\n\n([^\n]+\n){4}\n$");
  EXPECT_TRUE(std::regex_match(text, first)) << "banner was:\n" << text;
}
