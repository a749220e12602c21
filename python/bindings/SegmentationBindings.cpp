// Binary segmentations: counts, groups, small-group removal and the comparison of two.
#include <pybind11/stl.h>

#include "Bindings.h"
#include "dataset/BinarySegmentations.h"
#include "segmentation/SegmentationComparison.h"

namespace tarv::python {

namespace {

Dataset* segmentationOf(const PyDataset& d, int t) {
  Dataset* dataset = d.get();
  if (dataset == nullptr || !dataset->hasData()) throw py::value_error("the segmentation has no data");
  if (t < 0 || t >= dataset->getSize().t)
    throw py::index_error("no time step " + std::to_string(t) + " (the segmentation has " +
                          std::to_string(dataset->getSize().t) + ")");
  return dataset;
}

void checkCompatible(Dataset* a, Dataset* b) {
  const DatasetCoordinates sa = a->getSize();
  const DatasetCoordinates sb = b->getSize();
  if (sa.x != sb.x || sa.y != sb.y || sa.z != sb.z || sa.t != sb.t)
    throw py::value_error("the segmentations differ in size");
  if (a->getWorldEmbedding() != b->getWorldEmbedding())
    throw py::value_error("the segmentations differ in spacing, origin or direction");
}

py::object optionalNumber(const std::optional<double>& value) {
  return value ? py::object(py::float_(*value)) : py::object(py::none());
}

}  // namespace

void bindSegmentation(py::module_& m) {
  m.def(
      "_count",
      [](const PyDataset& d, int t) {
        Dataset* dataset = segmentationOf(d, t);
        py::gil_scoped_release release;
        return BinarySegmentations::getSegmentationVoxelCount(dataset, t);
      },
      py::arg("segmentation"), py::arg("t") = 0);
  m.def(
      "_compare",
      [](const PyDataset& a, const PyDataset& b, int t) {
        Dataset* first = segmentationOf(a, t);
        Dataset* second = segmentationOf(b, t);
        checkCompatible(first, second);
        segmentation::SegmentationComparison c;
        {
          py::gil_scoped_release release;
          c = segmentation::compareSegmentations(first, second, t);
        }
        py::dict result;
        result["t"] = c.t;
        result["voxels_a"] = c.voxelsA;
        result["voxels_b"] = c.voxelsB;
        result["shared"] = c.shared;
        result["only_a"] = c.onlyA;
        result["only_b"] = c.onlyB;
        result["union"] = c.unionCount;
        result["difference"] = c.difference;
        result["dice"] = optionalNumber(c.dice);
        result["jaccard"] = optionalNumber(c.jaccard);
        result["hausdorff_distance"] = optionalNumber(c.hausdorffDistance);
        result["average_border_distance"] = optionalNumber(c.averageBorderDistance);
        return result;
      },
      py::arg("a"), py::arg("b"), py::arg("t") = 0);
  m.def(
      "_group",
      [](const PyDataset& d, const std::vector<int>& start, double value, int limit) {
        Dataset* dataset = segmentationOf(d, start.size() > 3 ? start[3] : 0);
        if (start.size() < 3 || start.size() > 4) throw py::value_error("start takes x, y, z (and t)");
        if (limit < 0) throw py::value_error("the limit must not be negative");
        std::list<DatasetCoordinates> group;
        {
          py::gil_scoped_release release;
          group = BinarySegmentations::getGroup(dataset, value, limit,
                                                DatasetCoordinates(start[0], start[1], start[2],
                                                                   start.size() > 3 ? start[3] : 0, 0));
        }
        std::vector<std::tuple<int, int, int>> voxels;
        for (const DatasetCoordinates& c : group) voxels.emplace_back(c.x, c.y, c.z);
        return voxels;
      },
      py::arg("segmentation"), py::arg("start"), py::arg("value"), py::arg("limit"));
  m.def(
      "_remove_small_groups",
      [](PyDataset& d, double value, int maximalSize) {
        Dataset* dataset = segmentationOf(d, 0);
        if (!dataset->isLibraryClass() || dataset->isDependentDataset() || dataset->getPlainElements() == nullptr)
          throw py::value_error("groups are removed in place from a dataset held in memory");
        py::gil_scoped_release release;
        BinarySegmentations::removeSmallVoxelGroups(dataset, value, maximalSize);
      },
      py::arg("segmentation"), py::arg("value"), py::arg("maximal_size"));
}

}  // namespace tarv::python
