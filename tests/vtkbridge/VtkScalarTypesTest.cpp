#include "vtkbridge/VtkScalarTypes.h"

#include <gtest/gtest.h>

namespace tarv {
namespace {

TEST(VtkScalarTypesTest, ElementTypesWriteTheirVtkScalarTypes) {
  EXPECT_EQ(vtkbridge::vtkScalarTypeOf(TARV_ELEMENT_TYPE_BOOL), VTK_SIGNED_CHAR);
  EXPECT_EQ(vtkbridge::vtkScalarTypeOf(TARV_ELEMENT_TYPE_SIGNED_CHAR), VTK_SIGNED_CHAR);
  EXPECT_EQ(vtkbridge::vtkScalarTypeOf(TARV_ELEMENT_TYPE_UNSIGNED_CHAR), VTK_UNSIGNED_CHAR);
  EXPECT_EQ(vtkbridge::vtkScalarTypeOf(TARV_ELEMENT_TYPE_SIGNED_SHORT_INT), VTK_SHORT);
  EXPECT_EQ(vtkbridge::vtkScalarTypeOf(TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT), VTK_UNSIGNED_SHORT);
  EXPECT_EQ(vtkbridge::vtkScalarTypeOf(TARV_ELEMENT_TYPE_SIGNED_INT), VTK_INT);
  EXPECT_EQ(vtkbridge::vtkScalarTypeOf(TARV_ELEMENT_TYPE_UNSIGNED_INT), VTK_UNSIGNED_INT);
  EXPECT_EQ(vtkbridge::vtkScalarTypeOf(TARV_ELEMENT_TYPE_SIGNED_LONG_INT), VTK_LONG);
  EXPECT_EQ(vtkbridge::vtkScalarTypeOf(TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT), VTK_UNSIGNED_LONG);
  EXPECT_EQ(vtkbridge::vtkScalarTypeOf(TARV_ELEMENT_TYPE_FLOAT), VTK_FLOAT);
  EXPECT_EQ(vtkbridge::vtkScalarTypeOf(TARV_ELEMENT_TYPE_DOUBLE), VTK_DOUBLE);
  EXPECT_EQ(vtkbridge::vtkScalarTypeOf(TARV_ELEMENT_TYPE_LONG_DOUBLE), 0);
  EXPECT_EQ(vtkbridge::vtkScalarTypeOf(TARV_ELEMENT_TYPE_NO_TYPE), 0);
  EXPECT_EQ(vtkbridge::vtkScalarTypeOf(TARV_ELEMENT_TYPE_UNKNOWN), 0);
}

TEST(VtkScalarTypesTest, VtkScalarTypesReadAsElementTypes) {
  // Every VTK type identifier up to VTK_UNSIGNED_LONG_LONG and a few beyond.
  for (int scalarType = -2; scalarType <= 40; ++scalarType) {
    TARVElementType expected = TARV_ELEMENT_TYPE_NO_TYPE;
    if (scalarType == VTK_CHAR || scalarType == VTK_SIGNED_CHAR) expected = TARV_ELEMENT_TYPE_SIGNED_CHAR;
    if (scalarType == VTK_UNSIGNED_CHAR) expected = TARV_ELEMENT_TYPE_UNSIGNED_CHAR;
    if (scalarType >= VTK_SHORT && scalarType <= VTK_DOUBLE)
      expected = static_cast<TARVElementType>(scalarType - VTK_SHORT + TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
    if (scalarType == VTK_ID_TYPE || scalarType == VTK_STRING || scalarType == VTK_OPAQUE)
      expected = TARV_ELEMENT_TYPE_UNKNOWN;
    EXPECT_EQ(vtkbridge::elementTypeOfVtkScalarType(scalarType), expected) << "VTK type " << scalarType;
  }
}

}  // namespace
}  // namespace tarv
