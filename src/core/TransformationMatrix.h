#ifndef TARV_CORE_TRANSFORMATIONMATRIX_H
#define TARV_CORE_TRANSFORMATIONMATRIX_H

#include "core/Matrix.h"
#include "core/Vector3D.h"
#include "core/WorldCoordinates.h"

namespace tarv {

// A 4x4 homogeneous transformation acting on column vectors (x, y, z, 1).
// The default is the identity.
class TransformationMatrix : public Matrix<4, 4, double> {
public:
  TransformationMatrix();
  explicit TransformationMatrix(const Matrix<4, 4, double>& m) : Matrix<4, 4, double>(m) {}

  // Each make* replaces the whole matrix.
  void makeIdentity();
  // Replaces the matrix by its inverse and returns true. A singular (or non-finite) matrix
  // is left unchanged and false is returned.
  bool makeInverse();
  void makeScaling(const Vector3D& factors);
  void makeTranslation(const Vector3D& offset);
  // Columns 0 and 1 become the normalised arguments, column 2 their normalised cross product.
  void makeRotation(const Vector3D& first, const Vector3D& second);

  // this := m * this, so that m is applied after the current transformation.
  void concatenate(const TransformationMatrix& m);

  // x, y, z by the affine transformation (rotation, scaling and translation); t unchanged.
  // The bottom row is taken to be (0, 0, 0, 1).
  void transform(WorldCoordinates& p) const;
  // By the linear 3x3 part only: a direction, no translation.
  void transform(Vector3D& v) const;
};

}  // namespace tarv

#endif
