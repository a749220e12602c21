#include <gtest/gtest.h>

#include <set>
#include <string>

#include "dataset/DatasetMemory.h"
#include "elementtypes/ElementTypeNames.h"

namespace tarv {
namespace {

TEST(ElementTypeTableTest, ListsTheTwelveStorableTypesInIdentifierOrder) {
  EXPECT_EQ(ElementTypeTable::size, 12u);
  int expected = TARV_ELEMENT_TYPE_BOOL;
  ElementTypeTable::forEach([&]<typename Row>() {
    EXPECT_EQ(static_cast<int>(Row::id), expected) << Row::name;
    EXPECT_EQ(DatasetMemory::getElementTypeByType<typename Row::type>(), Row::id) << Row::name;
    ++expected;
  });
  EXPECT_EQ(expected, TARV_ELEMENT_TYPE_LONG_DOUBLE + 1);
}

TEST(ElementTypeTableTest, DispatchReachesExactlyTheStorableTypes) {
  for (int type = -2; type <= 20; ++type) {
    TARVElementType seen = TARV_ELEMENT_TYPE_NO_TYPE;
    const bool dispatched = dispatchElementType(static_cast<TARVElementType>(type), [&]<typename T>() {
      seen = DatasetMemory::getElementTypeByType<T>();
    });
    EXPECT_EQ(dispatched, type >= TARV_ELEMENT_TYPE_BOOL && type <= TARV_ELEMENT_TYPE_LONG_DOUBLE) << type;
    EXPECT_EQ(dispatched, isStorableElementType(type)) << type;
    if (dispatched) EXPECT_EQ(seen, type);
  }
}

TEST(ElementTypeTableTest, SizesFollowTheCppTypes) {
  EXPECT_EQ(DatasetMemory::getElementTypeBitSize(TARV_ELEMENT_TYPE_BOOL), 1u);
  EXPECT_EQ(DatasetMemory::getElementTypeByteSize(TARV_ELEMENT_TYPE_BOOL), sizeof(bool));
  EXPECT_EQ(DatasetMemory::getElementTypeBitSize(TARV_ELEMENT_TYPE_LONG_DOUBLE), 128u);
  EXPECT_EQ(DatasetMemory::getElementTypeBitSize(TARV_ELEMENT_TYPE_SIGNED_SHORT_INT), 16u);
  EXPECT_EQ(DatasetMemory::getElementTypeByteSize(TARV_ELEMENT_TYPE_DOUBLE), 8u);
  EXPECT_EQ(DatasetMemory::getElementTypeByteSize(TARV_ELEMENT_TYPE_VOID), 0u);
  EXPECT_EQ(DatasetMemory::getElementTypeBitSize(TARV_ELEMENT_TYPE_NO_TYPE), 0u);
  EXPECT_GE(kElementBufferSize, sizeof(long double));
}

TEST(ElementTypeTableTest, PrintedIdentifiers) {
  EXPECT_STREQ(DatasetMemory::getElementTypeName(0), "TARV_ELEMENT_TYPE_NO_TYPE");
  EXPECT_STREQ(DatasetMemory::getElementTypeName(1), "TARV_ELEMENT_TYPE_UNKNOWN");
  EXPECT_STREQ(DatasetMemory::getElementTypeName(2), "TARV_ELEMENT_TYPE_VOID");
  EXPECT_STREQ(DatasetMemory::getElementTypeName(3), "TARV_ELEMENT_TYPE_BOOL");
  EXPECT_STREQ(DatasetMemory::getElementTypeName(7), "TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT");
  EXPECT_STREQ(DatasetMemory::getElementTypeName(14), "TARV_ELEMENT_TYPE_LONG_DOUBLE");
  EXPECT_STREQ(DatasetMemory::getElementTypeName(15), "TARV_ELEMENT_TYPE_UNKNOWN");
  EXPECT_STREQ(DatasetMemory::getElementTypeName(-1), "TARV_ELEMENT_TYPE_UNKNOWN");
}

TEST(ElementTypeTableTest, NamesRoundTripAndAreUnique) {
  std::set<std::string> names;
  ElementTypeTable::forEach([&]<typename Row>() {
    EXPECT_EQ(elementTypeName(Row::id), Row::name);
    EXPECT_EQ(elementTypeFromName(std::string(Row::name)), Row::id) << Row::name;
    EXPECT_EQ(elementTypeFromName(std::string(Row::dtype)), Row::id) << Row::dtype;
    EXPECT_TRUE(names.insert(std::string(Row::name)).second) << Row::name;
  });
  EXPECT_STREQ(elementTypeName(TARV_ELEMENT_TYPE_VOID), "none");
  EXPECT_STREQ(elementTypeDtypeName(TARV_ELEMENT_TYPE_FLOAT), "float32");
  EXPECT_STREQ(elementTypeDtypeName(TARV_ELEMENT_TYPE_DOUBLE), "float64");
  EXPECT_EQ(elementTypeFromName("Long Double"), TARV_ELEMENT_TYPE_LONG_DOUBLE);
  EXPECT_EQ(elementTypeFromName("long-double"), TARV_ELEMENT_TYPE_LONG_DOUBLE);
  EXPECT_EQ(elementTypeFromName("UCHAR"), TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  EXPECT_EQ(elementTypeFromName("schar"), TARV_ELEMENT_TYPE_SIGNED_CHAR);
  EXPECT_EQ(elementTypeFromName("float"), TARV_ELEMENT_TYPE_FLOAT);
  EXPECT_EQ(elementTypeFromName("long"), TARV_ELEMENT_TYPE_SIGNED_LONG_INT);
  EXPECT_FALSE(elementTypeFromName("").has_value());
  EXPECT_FALSE(elementTypeFromName("int7").has_value());
  EXPECT_FALSE(elementTypeFromName("long doubl").has_value());
  EXPECT_EQ(elementTypeNameList(),
            "bool, int8, uint8, int16, uint16, int32, uint32, int64, uint64, float, double, longdouble");
}

}  // namespace
}  // namespace tarv
