#ifndef TARV_FORMATS_SLABWRITERS_H
#define TARV_FORMATS_SLABWRITERS_H

// Writers that take a dataset file's elements slab by slab, in file order (t, then z): the paged
// TIFF, TARV1 and raw writers are built on them, so that a file written in slabs is the file
// written at once, byte for byte.

#include <memory>
#include <string>

#include "core/DatasetBoundingBox.h"
#include "dataset/DatasetMemory.h"
#include "dataset/DatasetWorldEmbedding.h"
#include "formats/FormatRegistry.h"
#include "status/Status.h"

namespace tarv {

class Dataset;
class Progress;
class RawDatasetFileReadWrite;
class TARV1DatasetFileReadWrite;
class TiffDatasetFileWrite;

namespace formats {

// What a file will hold: its size, element type and placement, and the data's range (TARV1
// quantises with it).
struct SlabFileShape {
  DatasetCoordinates size{0, 0, 0, 0, 0};
  TARVElementType elementType = TARV_ELEMENT_TYPE_NO_TYPE;
  DatasetWorldEmbedding embedding;
  double minimum = 0.0;
  double maximum = 0.0;
};

class SlabWriter {
public:
  virtual ~SlabWriter();
  // The elements of the slab (file coordinates: all x, y and components, a range of z, one t),
  // read from source at file coordinates + shift. Slabs come in file order and cover the file.
  virtual Status writeSlab(Dataset& source, const DatasetBoundingBox& slab, const DatasetCoordinates& shift) = 0;
  // After the last slab.
  virtual Status finish() = 0;
};

// Open the file and write what comes before the elements; fail with the reason.
Result<std::unique_ptr<SlabWriter>> openRawSlabWriter(RawDatasetFileReadWrite& file, const SlabFileShape& shape);
Result<std::unique_ptr<SlabWriter>> openTarv1SlabWriter(const TARV1DatasetFileReadWrite& file,
                                                        const SlabFileShape& shape);
Result<std::unique_ptr<SlabWriter>> openPagedTiffSlabWriter(const TiffDatasetFileWrite& file,
                                                            const SlabFileShape& shape);

// The whole dataset as one slab: what the writers of the formats do.
Status writeWholeDataset(SlabWriter& writer, Dataset* dataset);

// Formats whose files can be written slab by slab.
bool formatWritesInSlabs(FileFormat format);

// What to write: the data (all time steps, or one as the file's only one) converted to an element
// type as Dataset::convertPartFrom converts.
struct StreamedWrite {
  FileFormat format = FileFormat::raw;
  RawLayout raw;
  TARVElementType elementType = TARV_ELEMENT_TYPE_NO_TYPE;
  int timeStep = -1;
  // Values outside the element type's limits become the nearer limit instead of wrapping.
  bool clampToType = false;
  // z slices per slab; 0 chooses them from the engine's memory budget.
  int slabDepth = 0;
  // Told the fraction done and asked whether to stop; may be null.
  Progress* progress = nullptr;
};

// Writes the dataset into path in a format of formatWritesInSlabs, computing it slab by slab
// (engine::streamDataset): memory does not grow with the volume's depth. TARV1 files, which
// state the data's range before the elements, take two passes unless the range is known. The
// file is the one that writeDatasetFile writes for the converted data. TARV1 files refuse a
// range their samples cannot hold (checkTarv1HoldsRange). A stop request gives a
// Status of code cancelled; the file is then incomplete.
Status writeDatasetFileInSlabs(Dataset* dataset, const std::string& path, const StreamedWrite& request);

}  // namespace formats
}  // namespace tarv

#endif
