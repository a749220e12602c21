#ifndef TARV_DATASET_DATASETWORLDEMBEDDING_H
#define TARV_DATASET_DATASETWORLDEMBEDDING_H

#include "core/DatasetCoordinates.h"
#include "core/TransformationMatrix.h"
#include "core/Vector3D.h"
#include "core/WorldCoordinates.h"

namespace tarv {

// Places a voxel grid in world space: world = origin + orientation * (spacing ⊙ voxel). Integer
// voxel coordinates denote voxel centres. The two matrices are kept in step with the parts.
class DatasetWorldEmbedding {
public:
  DatasetWorldEmbedding();
  DatasetWorldEmbedding(const WorldCoordinates& origin, const WorldCoordinates& spacing);
  DatasetWorldEmbedding(const WorldCoordinates& origin, const WorldCoordinates& spacing,
                        const TransformationMatrix& orientation);
  DatasetWorldEmbedding(const WorldCoordinates& origin, const WorldCoordinates& spacing, const Vector3D& first,
                        const Vector3D& second);
  DatasetWorldEmbedding(const DatasetWorldEmbedding&) = default;
  DatasetWorldEmbedding& operator=(const DatasetWorldEmbedding&) = default;

  const WorldCoordinates& getVoxelSpacing() const { return voxelSpacing; }
  const WorldCoordinates& getDatasetOrigin() const { return datasetOrigin; }
  TransformationMatrix getOrientation() const { return orientation; }
  const TransformationMatrix& getVoxel2WorldMatrix() const { return voxel2World; }
  const TransformationMatrix& getWorld2VoxelMatrix() const { return world2Voxel; }
  // The world directions of the voxel x and y axes.
  void getDirectionCosines(Vector3D& first, Vector3D& second) const;

  void setVoxelSpacing(const WorldCoordinates& spacing);
  void setDatasetOrigin(const WorldCoordinates& origin);
  void setDirectionCosines(const Vector3D& first, const Vector3D& second);
  void setOrientation(const TransformationMatrix& orientation);
  // Makes the matrix the master and derives origin, spacing (t spacing 0) and orientation from it.
  void setVoxel2WorldMatrix(const TransformationMatrix& matrix);
  void reset();

  // Equal when the voxel-to-world matrices are equal.
  bool operator==(const DatasetWorldEmbedding& other) const;
  bool operator!=(const DatasetWorldEmbedding& other) const { return !(*this == other); }

  WorldCoordinates voxelToWorld(const DatasetCoordinates& p) const;
  WorldCoordinates exactVoxelToWorld(const WorldCoordinates& v) const;
  WorldCoordinates worldToExactVoxel(const WorldCoordinates& w) const;
  // Rounded (halves away from zero), not clipped to any dataset; component 0.
  DatasetCoordinates worldToVoxel(const WorldCoordinates& w) const;

  void sync_trafo_from_parts();
  void sync_parts_from_trafo();

private:
  TransformationMatrix voxel2World;
  TransformationMatrix world2Voxel;
  WorldCoordinates datasetOrigin{0.0, 0.0, 0.0, 0.0};
  WorldCoordinates voxelSpacing{1.0, 1.0, 1.0, 1.0};
  TransformationMatrix orientation;
};

}  // namespace tarv

#endif
