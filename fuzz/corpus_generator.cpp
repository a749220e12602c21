// Writes the seed corpora of the fuzz harnesses with the library's own writers:
//
//   corpus_generator <corpus directory>
//
// Each harness gets a directory <corpus directory>/<harness> holding files named seed-*.
// Files found there are replaced; other files (regression cases) are left alone.
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <tiffio.h>

#include "FuzzSupport.h"
#include "core/Vector.h"
#include "dataset/CastDataset.h"
#include "dataset/ConstantDataset.h"
#include "dataset/DirectionFilteredVectorLengthDataset.h"
#include "dataset/GradientDataset.h"
#include "dataset/ImageDataset.h"
#include "dataset/IntervalPlateauDataset.h"
#include "dataset/IntervalThresholdDataset.h"
#include "dataset/LinearTransformationDataset.h"
#include "dataset/RawDatasetFileReadWrite.h"
#include "dataset/ScaleDataset.h"
#include "dataset/SmoothDataset.h"
#include "dataset/TARV1DatasetFileReadWrite.h"
#include "dataset/TiffDatasetFileWrite.h"

using namespace tarv;
namespace fs = std::filesystem;

namespace {

fs::path corpusRoot;
int written = 0;

void save(const std::string& harness, const std::string& name, const std::vector<std::uint8_t>& bytes) {
  const fs::path directory = corpusRoot / harness;
  fs::create_directories(directory);
  if (!fuzz::writeWholeFile((directory / ("seed-" + name)).string(), bytes)) {
    std::cerr << "cannot write " << (directory / name) << "\n";
    std::exit(1);
  }
  ++written;
}

std::vector<std::uint8_t> bytesOf(const std::string& text) { return std::vector<std::uint8_t>(text.begin(), text.end()); }

// ---- filter descriptions

// Sets the class's parameters away from their defaults, with the sources already connected.
void setSampleParameters(DependentDataset* filter, int classIndex) {
  switch (classIndex) {
    case 0: static_cast<CastDataset*>(filter)->setParameters(TARV_ELEMENT_TYPE_SIGNED_SHORT_INT); break;
    case 1: static_cast<ConstantDataset*>(filter)->setParameters(3.5); break;
    case 2: static_cast<DirectionFilteredVectorLengthDataset*>(filter)->setParameters(true, Vector(2, 1.0), true); break;
    case 3: static_cast<GradientDataset*>(filter)->setParameters(3, 1, 5, true, -1.0); break;
    case 4: static_cast<IntervalPlateauDataset*>(filter)->setParameters(2.0, 8.0); break;
    case 5: static_cast<IntervalThresholdDataset*>(filter)->setParameters(2.0, 6.0, 1.0, 0.0, true, true); break;
    case 6: static_cast<LinearTransformationDataset*>(filter)->setParameters(2.5, -1.0); break;
    case 7: static_cast<ScaleDataset*>(filter)->setParameters(0.0, 255.0, false, -4.0, 12.0); break;
    case 8: static_cast<SmoothDataset*>(filter)->setParameters(3, 5, 1, 0.5); break;
    default: break;
  }
}

void filterDescriptions() {
  for (int classIndex = 0; classIndex < fuzz::filterClassCount; ++classIndex) {
    const int sourceCount = classIndex == 2 ? 2 : classIndex == 9 ? 3 : 1;
    for (int variant = 0; variant < 3; ++variant) {
      // Variant 0: defaults over float sources; 1: other parameters over short sources; 2: other
      // parameters over long rows of doubles.
      const TARVElementType type = variant == 0   ? TARV_ELEMENT_TYPE_FLOAT
                                   : variant == 1 ? TARV_ELEMENT_TYPE_SIGNED_SHORT_INT
                                                  : TARV_ELEMENT_TYPE_DOUBLE;
      const int sizeVariant = variant == 0 ? 0 : variant == 1 ? 2 : 4;
      std::vector<std::unique_ptr<Dataset>> sources;
      std::vector<Dataset*> pointers;
      for (int i = 0; i < sourceCount; ++i) {
        sources.emplace_back(fuzz::createSourceDataset(type, fuzz::sourceSizeVariant(sizeVariant), variant % 2, i));
        sources.back()->setDatasetID(i + 1);
        pointers.push_back(sources.back().get());
      }
      std::unique_ptr<DependentDataset> filter(fuzz::createFilter(classIndex));
      filter->setDatasetID(10 + classIndex);
      filter->setSourceDatasets(pointers);
      if (variant != 0) {
        setSampleParameters(filter.get(), classIndex);
        filter->setDynamicallyCached(false);
      }
      std::ostringstream out;
      filter->write(out);
      filter.reset();
      const std::uint8_t selector = static_cast<std::uint8_t>((type - TARV_ELEMENT_TYPE_BOOL) | ((variant % 2) << 4) |
                                                              (variant == 1 ? 128 : 0));
      std::vector<std::uint8_t> bytes{static_cast<std::uint8_t>(classIndex), selector,
                                      static_cast<std::uint8_t>(sizeVariant)};
      const std::string text = out.str();
      bytes.insert(bytes.end(), text.begin(), text.end());
      save("filter_description_fuzzer", std::string(fuzz::filterClassName(classIndex)) + "-" + std::to_string(variant),
           bytes);
    }
  }
}

// ---- plain TIFF streams

template <typename T>
void tiffStream(const std::string& name, std::size_t x, std::size_t y, std::size_t z, std::size_t px, std::size_t py,
                std::size_t pz) {
  auto* image = new TImageDataset<T, 3>(x, y, z, px, py, pz);
  std::size_t i = 0;
  for (std::size_t c = 0; c < z; ++c)
    for (std::size_t b = 0; b < y; ++b)
      for (std::size_t a = 0; a < x; ++a, ++i) image->setVoxel(a, b, c, static_cast<T>((i * 37) % 200) - static_cast<T>(50));
  std::ostringstream out;
  const bool ok = writeTiffStream(name, &out, image);
  image->UnRegister();
  if (!ok) {
    std::cerr << "writeTiffStream failed for " << name << "\n";
    std::exit(1);
  }
  save("tiff_stream_fuzzer", name, bytesOf(out.str()));
}

void tiffStreams() {
  tiffStream<unsigned char>("uint8-2d", 5, 4, 1, 5, 4, 1);
  tiffStream<signed char>("int8-3d", 20, 20, 3, 20, 20, 3);
  tiffStream<short>("int16-2pages", 40, 3, 1, 16, 16, 1);
  tiffStream<unsigned short>("uint16-3d", 6, 5, 18, 16, 16, 16);
  tiffStream<int>("int32-2d", 3, 3, 1, 3, 3, 1);
  tiffStream<unsigned int>("uint32-3d", 4, 4, 2, 4, 4, 2);
  tiffStream<float>("float-2d", 17, 2, 1, 32, 16, 1);
}

// ---- TARV1

void tarv1(const std::string& name, const DatasetCoordinates& size, bool littleEndian, int variant) {
  std::unique_ptr<Dataset> dataset(fuzz::createSourceDataset(TARV_ELEMENT_TYPE_FLOAT, size, variant, 3));
  fuzz::MemoryFile file;
  TARV1DatasetFileReadWrite writer;
  writer.fileName = file.path();
  writer.littleEndian = littleEndian;
  writer.write(dataset.get());
  const std::vector<std::uint8_t> bytes = file.contents();
  if (bytes.size() < 2048) {
    std::cerr << "TARV1 write failed for " << name << "\n";
    std::exit(1);
  }
  save("tarv1_fuzzer", name, bytes);
}

void tarv1Files() {
  tarv1("ramp-little", DatasetCoordinates(3, 2, 2, 1, 1), true, 1);
  tarv1("small-big", DatasetCoordinates(4, 3, 1, 2, 1), false, 0);
  tarv1("line", DatasetCoordinates(9, 1, 1, 1, 1), true, 0);
}

// ---- raw

void raw(const std::string& name, fuzz::RawLayout layout, int variant) {
  std::unique_ptr<Dataset> dataset(fuzz::createSourceDataset(layout.datasetElementType, layout.size, variant, 5));
  fuzz::MemoryFile file;
  RawDatasetFileReadWrite writer;
  writer.fileName = file.path();
  writer.elementType = layout.fileElementType;
  writer.byteSwap = layout.byteSwap;
  writer.headerSize = layout.headerSize;
  writer.trailerSize = layout.trailerSize;
  writer.elementPrefixSize = layout.elementPrefixSize;
  writer.elementSuffixSize = layout.elementSuffixSize;
  writer.write(dataset.get());
  std::vector<std::uint8_t> bytes = layout.encode();
  const std::vector<std::uint8_t> contents = file.contents();
  bytes.insert(bytes.end(), contents.begin(), contents.end());
  save("raw_fuzzer", name, bytes);
}

void rawFiles() {
  fuzz::RawLayout layout;
  layout.fileElementType = TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT;
  layout.datasetElementType = TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT;
  layout.headerSize = 4;
  layout.elementSuffixSize = 1;
  layout.size = DatasetCoordinates(2, 2, 1, 1, 1);
  raw("uint16-fillers", layout, 0);

  layout = fuzz::RawLayout();
  layout.fileElementType = TARV_ELEMENT_TYPE_DOUBLE;
  layout.datasetElementType = TARV_ELEMENT_TYPE_UNSIGNED_CHAR;
  layout.byteSwap = true;
  layout.size = DatasetCoordinates(3, 2, 2, 1, 1);
  raw("double-to-uint8-swapped", layout, 1);

  layout = fuzz::RawLayout();
  layout.fileElementType = TARV_ELEMENT_TYPE_FLOAT;
  layout.datasetElementType = TARV_ELEMENT_TYPE_FLOAT;
  layout.trailerSize = 3;
  layout.elementPrefixSize = 2;
  layout.size = DatasetCoordinates(4, 1, 1, 2, 2);
  raw("float-vectors", layout, 2);

  layout = fuzz::RawLayout();
  layout.fileElementType = TARV_ELEMENT_TYPE_BOOL;
  layout.datasetElementType = TARV_ELEMENT_TYPE_BOOL;
  layout.size = DatasetCoordinates(9, 2, 1, 1, 1);
  raw("bool", layout, 0);

  layout = fuzz::RawLayout();
  layout.fileElementType = TARV_ELEMENT_TYPE_LONG_DOUBLE;
  layout.datasetElementType = TARV_ELEMENT_TYPE_SIGNED_LONG_INT;
  layout.headerSize = -3;
  layout.size = DatasetCoordinates(2, 1, 2, 1, 1);
  raw("long-double-to-int64", layout, 1);
}

// ---- paged TIFF

void pagedTiff(const std::string& name, TARVElementType type, const DatasetCoordinates& size, int variant,
               bool segmentation) {
  std::unique_ptr<Dataset> dataset(fuzz::createSourceDataset(type, size, variant, 7));
  fuzz::MemoryFile file;
  TiffDatasetFileWrite writer;
  writer.fileName = file.path();
  writer.write(dataset.get());
  std::vector<std::uint8_t> bytes{static_cast<std::uint8_t>(segmentation ? 1 : 0)};
  const std::vector<std::uint8_t> contents = file.contents();
  if (contents.empty()) {
    std::cerr << "paged TIFF write failed for " << name << "\n";
    std::exit(1);
  }
  bytes.insert(bytes.end(), contents.begin(), contents.end());
  save("tiff_module_fuzzer", name, bytes);
}

// A stripped 2D file, which opens but cannot be read page by page; written with libtiff itself,
// since the library writes tiles only.
void strippedTiff() {
  fuzz::MemoryFile file;
  TIFF* tiff = TIFFOpen(file.path().c_str(), "w");
  if (tiff == nullptr) std::exit(1);
  const std::uint32_t width = 6, length = 4;
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, length);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 2);
  std::uint8_t row[width];
  for (std::uint32_t y = 0; y < length; ++y) {
    for (std::uint32_t x = 0; x < width; ++x) row[x] = static_cast<std::uint8_t>(x * y);
    TIFFWriteScanline(tiff, row, y, 0);
  }
  TIFFClose(tiff);
  std::vector<std::uint8_t> bytes{0};
  const std::vector<std::uint8_t> contents = file.contents();
  bytes.insert(bytes.end(), contents.begin(), contents.end());
  save("tiff_module_fuzzer", "stripped-2d", bytes);
}

void pagedTiffs() {
  pagedTiff("uint8-2d", TARV_ELEMENT_TYPE_UNSIGNED_CHAR, DatasetCoordinates(5, 4, 1, 1, 1), 0, false);
  pagedTiff("int16-pages", TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, DatasetCoordinates(70, 66, 2, 1, 1), 1, false);
  pagedTiff("float-3d", TARV_ELEMENT_TYPE_FLOAT, DatasetCoordinates(6, 5, 3, 1, 1), 2, false);
  pagedTiff("rgb", TARV_ELEMENT_TYPE_UNSIGNED_CHAR, DatasetCoordinates(8, 8, 1, 1, 3), 0, false);
  pagedTiff("rgba-uint16", TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, DatasetCoordinates(3, 2, 2, 1, 4), 1, false);
  pagedTiff("bool-segmentation", TARV_ELEMENT_TYPE_BOOL, DatasetCoordinates(9, 7, 2, 1, 1), 1, true);
  pagedTiff("int32-segmentation", TARV_ELEMENT_TYPE_SIGNED_INT, DatasetCoordinates(4, 4, 1, 1, 1), 1, true);
  pagedTiff("uint32-two-components", TARV_ELEMENT_TYPE_UNSIGNED_INT, DatasetCoordinates(3, 3, 1, 1, 2), 0, false);
  strippedTiff();
}


// ---- filter graphs for the tool's graph reader

// Describes the filters, one block each, behind a comment line; input IDs are those of sources
// that are not filters.
std::string describeGraph(const std::vector<DependentDataset*>& filters) {
  std::ostringstream out;
  out << "# written by the corpus generator\n";
  for (DependentDataset* filter : filters) filter->write(out);
  return out.str();
}

void graphs() {
  const std::uint8_t floatInputs = static_cast<std::uint8_t>(TARV_ELEMENT_TYPE_FLOAT - TARV_ELEMENT_TYPE_BOOL);
  const std::uint8_t shortInputs =
      static_cast<std::uint8_t>((TARV_ELEMENT_TYPE_SIGNED_SHORT_INT - TARV_ELEMENT_TYPE_BOOL) | (2 << 4));
  const std::uint8_t wideDoubleInputs =
      static_cast<std::uint8_t>((TARV_ELEMENT_TYPE_DOUBLE - TARV_ELEMENT_TYPE_BOOL) | (4 << 4));
  auto save_graph = [](const std::string& name, std::uint8_t selector, const std::string& text) {
    std::vector<std::uint8_t> bytes{selector};
    bytes.insert(bytes.end(), text.begin(), text.end());
    save("graph_reader_fuzzer", name, bytes);
  };
  {
    // Smoothing, the gradients along x and y, and their length.
    std::unique_ptr<Dataset> input(fuzz::createSourceDataset(TARV_ELEMENT_TYPE_FLOAT, fuzz::sourceSizeVariant(0), 1, 0));
    input->setDatasetID(1);
    SmoothDataset smooth;
    smooth.setDatasetID(2);
    smooth.setSourceDataset(input.get());
    smooth.setParameters(3, 3, 1, 0.0);
    GradientDataset gx, gy;
    gx.setDatasetID(3);
    gx.setSourceDataset(&smooth);
    gx.setParameters(2, 0, 3, false, 0.0);
    gy.setDatasetID(4);
    gy.setSourceDataset(&smooth);
    gy.setParameters(2, 1, 3, false, 0.0);
    DirectionFilteredVectorLengthDataset length;
    length.setDatasetID(5);
    length.setSourceDatasets({&gx, &gy});
    length.setParameters(false, Vector(2, 1.0), false);
    save_graph("edges", floatInputs, describeGraph({&smooth, &gx, &gy, &length}));
    save_graph("edges-wide", wideDoubleInputs, describeGraph({&smooth, &gx, &gy, &length}));
  }
  {
    // A point-wise chain over two inputs.
    std::unique_ptr<Dataset> a(fuzz::createSourceDataset(TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, fuzz::sourceSizeVariant(2), 0, 0));
    std::unique_ptr<Dataset> b(fuzz::createSourceDataset(TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, fuzz::sourceSizeVariant(2), 0, 1));
    a->setDatasetID(7);
    b->setDatasetID(8);
    ScaleDataset scale;
    scale.setDatasetID(10);
    scale.setSourceDataset(a.get());
    scale.setParameters(0.0, 1.0, true, 0.0, 1.0);
    IntervalThresholdDataset threshold;
    threshold.setDatasetID(11);
    threshold.setSourceDataset(&scale);
    threshold.setParameters(0.25, 0.75, 1.0, 0.0, true, true);
    VectorLengthDataset length;
    length.setDatasetID(12);
    length.setSourceDatasets({&threshold, b.get()});
    CastDataset cast;
    cast.setDatasetID(13);
    cast.setSourceDataset(&length);
    cast.setParameters(TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
    save_graph("point-wise", shortInputs, describeGraph({&cast, &length, &threshold, &scale}));
  }
  {
    std::unique_ptr<Dataset> input(fuzz::createSourceDataset(TARV_ELEMENT_TYPE_FLOAT, fuzz::sourceSizeVariant(0), 0, 0));
    input->setDatasetID(0);
    LinearTransformationDataset linear;
    linear.setDatasetID(1);
    linear.setSourceDataset(input.get());
    linear.setParameters(-2.0, 0.5);
    IntervalPlateauDataset plateau;
    plateau.setDatasetID(2);
    plateau.setSourceDataset(&linear);
    plateau.setParameters(-4.0, 2.0);
    ConstantDataset constant;
    constant.setDatasetID(3);
    constant.setSourceDataset(&plateau);
    constant.setParameters(1.5);
    save_graph("chain", floatInputs, describeGraph({&linear, &plateau, &constant}));
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: corpus_generator <corpus directory>\n";
    return 2;
  }
  fuzz::quietLibraryOutput();
  corpusRoot = argv[1];
  filterDescriptions();
  tiffStreams();
  tarv1Files();
  rawFiles();
  pagedTiffs();
  graphs();
  std::cout << "wrote " << written << " seed files under " << corpusRoot << "\n";
  return 0;
}
