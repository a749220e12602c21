#include "dataset/DatasetWorldEmbedding.h"

#include "core/Mathematics.h"

namespace tarv {

DatasetWorldEmbedding::DatasetWorldEmbedding() { sync_trafo_from_parts(); }

DatasetWorldEmbedding::DatasetWorldEmbedding(const WorldCoordinates& origin, const WorldCoordinates& spacing)
    : datasetOrigin(origin), voxelSpacing(spacing) {
  sync_trafo_from_parts();
}

DatasetWorldEmbedding::DatasetWorldEmbedding(const WorldCoordinates& origin, const WorldCoordinates& spacing,
                                             const TransformationMatrix& orient)
    : datasetOrigin(origin), voxelSpacing(spacing), orientation(orient) {
  sync_trafo_from_parts();
}

DatasetWorldEmbedding::DatasetWorldEmbedding(const WorldCoordinates& origin, const WorldCoordinates& spacing,
                                             const Vector3D& first, const Vector3D& second)
    : datasetOrigin(origin), voxelSpacing(spacing) {
  orientation.makeRotation(first, second);
  sync_trafo_from_parts();
}

void DatasetWorldEmbedding::getDirectionCosines(Vector3D& first, Vector3D& second) const {
  for (int i = 0; i < 3; ++i) {
    first[i] = orientation(i, 0);
    second[i] = orientation(i, 1);
  }
}

void DatasetWorldEmbedding::setVoxelSpacing(const WorldCoordinates& spacing) {
  voxelSpacing = spacing;
  sync_trafo_from_parts();
}

void DatasetWorldEmbedding::setDatasetOrigin(const WorldCoordinates& origin) {
  datasetOrigin = origin;
  sync_trafo_from_parts();
}

void DatasetWorldEmbedding::setDirectionCosines(const Vector3D& first, const Vector3D& second) {
  orientation.makeRotation(first, second);
  sync_trafo_from_parts();
}

void DatasetWorldEmbedding::setOrientation(const TransformationMatrix& orient) {
  orientation = orient;
  sync_trafo_from_parts();
}

void DatasetWorldEmbedding::setVoxel2WorldMatrix(const TransformationMatrix& matrix) {
  voxel2World = matrix;
  sync_parts_from_trafo();
}

void DatasetWorldEmbedding::reset() {
  datasetOrigin = WorldCoordinates(0.0, 0.0, 0.0, 0.0);
  voxelSpacing = WorldCoordinates(1.0, 1.0, 1.0, 1.0);
  orientation.makeIdentity();
  sync_trafo_from_parts();
}

bool DatasetWorldEmbedding::operator==(const DatasetWorldEmbedding& other) const {
  return voxel2World == other.voxel2World;
}

WorldCoordinates DatasetWorldEmbedding::voxelToWorld(const DatasetCoordinates& p) const {
  WorldCoordinates w(p.x, p.y, p.z, p.t);
  voxel2World.transform(w);
  return w;
}

WorldCoordinates DatasetWorldEmbedding::exactVoxelToWorld(const WorldCoordinates& v) const {
  WorldCoordinates w = v;
  voxel2World.transform(w);
  return w;
}

WorldCoordinates DatasetWorldEmbedding::worldToExactVoxel(const WorldCoordinates& w) const {
  WorldCoordinates v = w;
  world2Voxel.transform(v);
  return v;
}

DatasetCoordinates DatasetWorldEmbedding::worldToVoxel(const WorldCoordinates& w) const {
  const WorldCoordinates v = worldToExactVoxel(w);
  return DatasetCoordinates(Mathematics::round(v.x), Mathematics::round(v.y), Mathematics::round(v.z),
                            Mathematics::round(v.t), 0);
}

void DatasetWorldEmbedding::sync_trafo_from_parts() {
  voxel2World.makeIdentity();
  TransformationMatrix step;
  step.makeScaling(Vector3D(voxelSpacing.x, voxelSpacing.y, voxelSpacing.z));
  voxel2World.concatenate(step);
  voxel2World.concatenate(orientation);
  step.makeTranslation(Vector3D(datasetOrigin.x, datasetOrigin.y, datasetOrigin.z));
  voxel2World.concatenate(step);
  world2Voxel = voxel2World;
  world2Voxel.makeInverse();
}

void DatasetWorldEmbedding::sync_parts_from_trafo() {
  WorldCoordinates origin(0.0, 0.0, 0.0, 0.0);
  voxel2World.transform(origin);
  datasetOrigin = origin;
  double lengths[3];
  for (int j = 0; j < 3; ++j)
    lengths[j] = Vector3D(voxel2World(0, j), voxel2World(1, j), voxel2World(2, j)).getLength();
  voxelSpacing = WorldCoordinates(lengths[0], lengths[1], lengths[2], 0.0);
  Vector3D axes[3] = {Vector3D(1, 0, 0), Vector3D(0, 1, 0), Vector3D(0, 0, 1)};
  for (auto& axis : axes) {
    voxel2World.transform(axis);
    axis.normalize();
  }
  orientation.makeIdentity();
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) orientation(i, j) = axes[j][i];
  world2Voxel = voxel2World;
  world2Voxel.makeInverse();
}

}  // namespace tarv
