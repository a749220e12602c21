#include "core/DcmHeader.h"

#include <gtest/gtest.h>

#include <memory>

using tarv::DcmHeader;

TEST(DcmHeaderTest, StartsEmpty) {
  const DcmHeader header;
  EXPECT_FALSE(header.hasTag(0x0010, 0x0010));
  EXPECT_EQ(header.getValue(0x0010, 0x0010), "") << "an absent tag reads as empty";
  EXPECT_TRUE(header.getValues().empty());
}

TEST(DcmHeaderTest, SetGetReplaceRemove) {
  DcmHeader header;
  header.setValue(0x0010, 0x0010, "Doe^John");
  header.setValue(0x0028, 0x0030, "0.5\\0.5");
  EXPECT_TRUE(header.hasTag(0x0010, 0x0010));
  EXPECT_FALSE(header.hasTag(0x0010, 0x0020)) << "same group, other element";
  EXPECT_FALSE(header.hasTag(0x0020, 0x0010)) << "group and element must not be swapped";
  EXPECT_EQ(header.getValue(0x0010, 0x0010), "Doe^John");
  EXPECT_EQ(header.getValue(0x0028, 0x0030), "0.5\\0.5");

  header.setValue(0x0010, 0x0010, "Roe^Jane");
  EXPECT_EQ(header.getValue(0x0010, 0x0010), "Roe^Jane");
  EXPECT_EQ(header.getValues().size(), 2u);

  header.setValue(0x0008, 0x0060, "");
  EXPECT_TRUE(header.hasTag(0x0008, 0x0060)) << "an empty value is still a present tag";

  EXPECT_TRUE(header.removeTag(0x0010, 0x0010));
  EXPECT_FALSE(header.removeTag(0x0010, 0x0010));
  EXPECT_FALSE(header.hasTag(0x0010, 0x0010));
}

TEST(DcmHeaderTest, TagsAreOrderedByGroupThenElement) {
  DcmHeader header;
  header.setValue(0x0028, 0x0010, "rows");
  header.setValue(0x0008, 0x0060, "modality");
  header.setValue(0xFFFF, 0x0000, "last group");
  header.setValue(0x0008, 0x0020, "date");
  std::vector<DcmHeader::Tag> tags;
  for (const auto& [tag, value] : header.getValues()) tags.push_back(tag);
  const std::vector<DcmHeader::Tag> expected{{0x0008, 0x0020}, {0x0008, 0x0060}, {0x0028, 0x0010}, {0xFFFF, 0x0000}};
  EXPECT_EQ(tags, expected);
}

TEST(DcmHeaderTest, CopiesAreIndependentAndDerivedClassesDeleteThroughBase) {
  DcmHeader a;
  a.setValue(1, 2, "x");
  DcmHeader b = a;
  b.setValue(1, 2, "y");
  EXPECT_EQ(a.getValue(1, 2), "x");
  EXPECT_EQ(b.getValue(1, 2), "y");

  struct Counted : DcmHeader {
    int* destroyed;
    explicit Counted(int* d) : destroyed(d) {}
    ~Counted() override { ++*destroyed; }
  };
  int destroyed = 0;
  { std::unique_ptr<DcmHeader> owned = std::make_unique<Counted>(&destroyed); }
  EXPECT_EQ(destroyed, 1) << "the destructor must be virtual";
}
