#include "formats/SlabWriters.h"

#include <algorithm>
#include <utility>

#include "analysis/ElementStatistics.h"
#include "core/Progress.h"
#include "dataset/Dataset.h"
#include "dataset/RawDatasetFileReadWrite.h"
#include "dataset/TARV1DatasetFileReadWrite.h"
#include "dataset/TiffDatasetFileWrite.h"
#include "engine/Evaluation.h"
#include "formats/ValueConversion.h"

namespace tarv::formats {

namespace {

const DatasetCoordinates kOrigin(0, 0, 0, 0, 0);

// A pass's share of the whole: passes report fractions from first to first + share.
class PassProgress : public Progress {
public:
  PassProgress(Progress* whole, double first, double share) : whole(whole), first(first), share(share) {}
  void setProgress(double fractionDone) override {
    if (whole != nullptr) whole->setProgress(first + share * fractionDone);
  }
  bool shouldStop() override { return whole != nullptr && whole->shouldStop(); }

private:
  Progress* whole;
  double first;
  double share;
};

// Hands the writer (or the range) each slab of the streamed dataset in the file's coordinates:
// the chosen time step becomes t = 0, and the data converted to the file's element type where
// they differ.
class SlabsInFileTerms : public engine::SlabConsumer {
public:
  SlabsInFileTerms(TARVElementType type, int timeStep, bool clamp)
      : elementType(type), clamp(clamp), timeStep(timeStep) {}

  bool consumeSlab(Dataset& dataset, const DatasetBoundingBox& slab) override {
    DatasetBoundingBox fileSlab = slab;
    if (timeStep >= 0) fileSlab.start.t = fileSlab.end.t = 0;
    if (elementType == dataset.getElementType()) {
      status = take(dataset, fileSlab, slab.start - fileSlab.start);
      return status.ok();
    }
    Dataset converted(true);
    if (clamp)
      convertPartClamping(converted, &dataset, elementType, slab);
    else
      converted.convertPartFrom(&dataset, elementType, slab);
    if (!converted.hasData()) {
      status = resourceExhaustedError("not enough memory to convert a slab");
      return false;
    }
    status = take(converted, fileSlab, kOrigin - fileSlab.start);
    return status.ok();
  }

  Status status;

protected:
  virtual Status take(Dataset& source, const DatasetBoundingBox& fileSlab, const DatasetCoordinates& shift) = 0;

private:
  TARVElementType elementType;
  bool clamp;
  int timeStep;
};

class WritingSlabs : public SlabsInFileTerms {
public:
  WritingSlabs(SlabWriter& writer, TARVElementType type, int timeStep, bool clamp)
      : SlabsInFileTerms(type, timeStep, clamp), writer(writer) {}

protected:
  Status take(Dataset& source, const DatasetBoundingBox& fileSlab, const DatasetCoordinates& shift) override {
    return writer.writeSlab(source, fileSlab, shift);
  }

private:
  SlabWriter& writer;
};

// The range as Dataset::getMinimumValue and getMaximumValue find it: the first element, then each
// one lower than the minimum or else higher than the maximum, in memory order.
class RangeOfSlabs : public SlabsInFileTerms {
public:
  using SlabsInFileTerms::SlabsInFileTerms;
  analysis::RunningRange range;

protected:
  Status take(Dataset& source, const DatasetBoundingBox& fileSlab, const DatasetCoordinates& shift) override {
    DatasetCoordinates p = fileSlab.start;
    for (p.t = fileSlab.start.t; p.t <= fileSlab.end.t; ++p.t)
      for (p.z = fileSlab.start.z; p.z <= fileSlab.end.z; ++p.z)
        for (p.y = fileSlab.start.y; p.y <= fileSlab.end.y; ++p.y)
          for (p.x = fileSlab.start.x; p.x <= fileSlab.end.x; ++p.x)
            for (p.c = fileSlab.start.c; p.c <= fileSlab.end.c; ++p.c) range.add(source.getElement<double>(p + shift));
    return okStatus();
  }
};

// Streams the dataset into the consumer; the consumer's own failure, or cancelled on a stop.
Status stream(Dataset* dataset, SlabsInFileTerms& consumer, const StreamedWrite& request, Progress* progress) {
  engine::StreamOptions options;
  options.timeStep = request.timeStep;
  options.slabDepth = request.slabDepth;
  options.progress = progress;
  switch (engine::streamDataset(dataset, consumer, options)) {
    case engine::StreamResult::completed: return okStatus();
    case engine::StreamResult::stopped: return cancelledError("stopped on request");
    case engine::StreamResult::refusedByConsumer: return consumer.status;
    case engine::StreamResult::noData: break;
  }
  return invalidArgumentError("no data to write");
}

}  // namespace

SlabWriter::~SlabWriter() = default;

Status writeWholeDataset(SlabWriter& writer, Dataset* dataset) {
  dataset->announceAccessToFullDataset();
  const DatasetBoundingBox whole(kOrigin, dataset->getSize() - DatasetCoordinates(1, 1, 1, 1, 1));
  if (Status written = writer.writeSlab(*dataset, whole, kOrigin); !written.ok()) return written;
  return writer.finish();
}

bool formatWritesInSlabs(FileFormat format) {
  return format == FileFormat::raw || format == FileFormat::tarv1 || format == FileFormat::pagedTiff;
}

Status writeDatasetFileInSlabs(Dataset* dataset, const std::string& path, const StreamedWrite& request) {
  if (dataset == nullptr || !dataset->hasData()) return invalidArgumentError("no data to write");
  if (!formatWritesInSlabs(request.format)) return unsupportedError("this format is written in one piece");
  const DatasetCoordinates dataSize = dataset->getSize();
  if (request.timeStep >= dataSize.t) return invalidArgumentError("no such time step");
  SlabFileShape shape;
  shape.size = dataSize;
  if (request.timeStep >= 0) shape.size.t = 1;
  shape.elementType = request.elementType;
  shape.embedding = dataset->getWorldEmbedding();
  const bool converting = request.timeStep >= 0 || request.elementType != dataset->getElementType();
  if (request.timeStep >= 0) {
    // Placed as the converted copy of the time step is: its first voxel where the data has it.
    const DatasetCoordinates first(0, 0, 0, request.timeStep, 0);
    Dataset corner(true);
    corner.convertPartFrom(dataset, request.elementType, DatasetBoundingBox(first, first));
    if (!corner.hasData()) return resourceExhaustedError("not enough memory to convert the data");
    shape.embedding = corner.getWorldEmbedding();
  }

  Result<std::unique_ptr<SlabWriter>> writer = invalidArgumentError("no writer");
  double firstShare = 0.0;
  switch (request.format) {
    case FileFormat::raw: {
      RawDatasetFileReadWrite file = rawFileFor(path, request.raw, request.elementType);
      writer = openRawSlabWriter(file, shape);
      break;
    }
    case FileFormat::tarv1: {
      TARV1DatasetFileReadWrite file;
      file.fileName = path;
      // The header states the range: known, or found in a first pass.
      if (!converting && dataset->getMinimumAndMaximumValueCacheStatus()) {
        shape.minimum = dataset->getMinimumValue();
        shape.maximum = dataset->getMaximumValue();
      } else {
        RangeOfSlabs range(request.elementType, request.timeStep, request.clampToType);
        PassProgress first(request.progress, 0.0, 0.5);
        if (Status found = stream(dataset, range, request, &first); !found.ok()) return found;
        shape.minimum = range.range.minimum;
        shape.maximum = range.range.maximum;
        firstShare = 0.5;
      }
      if (Status holds = checkTarv1HoldsRange(shape.minimum, shape.maximum); !holds.ok()) return holds;
      writer = openTarv1SlabWriter(file, shape);
      break;
    }
    default: {
      TiffDatasetFileWrite file;
      file.fileName = path;
      writer = openPagedTiffSlabWriter(file, shape);
      break;
    }
  }
  if (!writer.ok()) return writer.status();
  WritingSlabs slabs(*writer.value(), request.elementType, request.timeStep, request.clampToType);
  PassProgress second(request.progress, firstShare, 1.0 - firstShare);
  if (Status written = stream(dataset, slabs, request, &second); !written.ok()) return written;
  return writer.value()->finish();
}

}  // namespace tarv::formats
