#include "core/TARVBase.h"

#include <gtest/gtest.h>

#include <memory>

using tarv::TARVBase;

TEST(TARVBaseTest, StartsUnreferred) {
  const TARVBase object;
  EXPECT_FALSE(object.isRefered());
}

TEST(TARVBaseTest, CountsReferences) {
  TARVBase object;
  object.refer();
  EXPECT_TRUE(object.isRefered());
  object.refer();
  object.unrefer();
  EXPECT_TRUE(object.isRefered()) << "one of two references remains";
  object.unrefer();
  EXPECT_FALSE(object.isRefered());
}

TEST(TARVBaseTest, UnreferBelowZeroIsHarmless) {
  TARVBase object;
  object.unrefer();
  EXPECT_FALSE(object.isRefered());
  object.refer();
  EXPECT_TRUE(object.isRefered()) << "a surplus unrefer must not swallow the next refer";
}

TEST(TARVBaseTest, CopiesStartWithTheirOwnCount) {
  TARVBase original;
  original.refer();
  const TARVBase copy(original);
  EXPECT_FALSE(copy.isRefered());
  TARVBase assigned;
  assigned = original;
  EXPECT_FALSE(assigned.isRefered()) << "assignment does not copy references";
  EXPECT_TRUE(original.isRefered());
}

TEST(TARVBaseTest, DestructorIsVirtual) {
  struct Counted : TARVBase {
    int* destroyed;
    explicit Counted(int* d) : destroyed(d) {}
    ~Counted() override { ++*destroyed; }
  };
  int destroyed = 0;
  { std::unique_ptr<TARVBase> owned = std::make_unique<Counted>(&destroyed); }
  EXPECT_EQ(destroyed, 1);
}
