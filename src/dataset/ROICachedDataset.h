#ifndef TARV_DATASET_ROICACHEDDATASET_H
#define TARV_DATASET_ROICACHEDDATASET_H

#include "dataset/CachedDataset.h"

namespace tarv {

// A cached dataset whose data and status memories hold only a region of interest (ROI) of the
// whole dataset, grown towards accessed elements by a look-ahead margin.
class ROICachedDataset : public CachedDataset {
public:
  explicit ROICachedDataset(bool createCache);
  ~ROICachedDataset() override;

  void announceAccess(const DatasetBoundingBox& box) override;
  void announceAccessToFullDataset() override;
  bool getElementByBuffer(const DatasetCoordinates& p, void* buffer) override;
  void setElementByBuffer(const DatasetCoordinates& p, const void* buffer) override;
  using CachedDataset::getElementByBuffer;
  using CachedDataset::setElementByBuffer;
  void reset() override;
  void initializeDataset(const DatasetCoordinates& size, TARVElementType type,
                         const DatasetWorldEmbedding& embedding) override;
  void initializeDataset(DatasetMemory* memory, const DatasetWorldEmbedding& embedding) override;
  using CachedDataset::initializeDataset;
  void resetCache() override;
  DatasetBoundingBox getCacheRegion() override;
  bool areCoordinatesInsideCache(const DatasetCoordinates& p) override;
  bool isBoxInsideCache(const DatasetBoundingBox& box) override;
  DatasetBoundingBox fitBoxToCacheInterior(const DatasetBoundingBox& box) override;

  // New virtual operations, in this order.
  virtual void setMinimalROIEnforcement(bool enforce);
  virtual bool reshapeCacheForCalculation(const DatasetCoordinates& p);

  bool hasMinimalROIEnforcement() const { return minimalROIEnforcement; }
  DatasetCoordinates getLookAheadRange() const { return lookAheadRange; }
  void setLookAheadRange(const DatasetCoordinates& range) { lookAheadRange = range; }

  bool reshapeCache(const DatasetBoundingBox& box);
  bool reshapeCacheToIncludeBox(const DatasetBoundingBox& box);
  bool reshapeCacheToIncludeElement(const DatasetCoordinates& p);
  bool reshapeCacheToIncludeOnlyElement(const DatasetCoordinates& p);
  bool reshapeCacheToFullDataset();

protected:
  DatasetCoordinates cacheSize{0, 0, 0, 0, 0};
  DatasetBoundingBox roi{DatasetCoordinates(-1, -1, -1, -1, -1), DatasetCoordinates(-1, -1, -1, -1, -1)};
  bool minimalROIEnforcement = false;
  DatasetCoordinates lookAheadRange{10, 10, 10, 0, 4};
  DatasetCoordinates unusedCoordinates{-1, -1, -1, -1, -1};
};

}  // namespace tarv

#endif
