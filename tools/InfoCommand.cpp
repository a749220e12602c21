// tarv info FILE...: what a dataset file holds.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "Commands.h"
#include "DatasetFiles.h"
#include "elementtypes/ElementTypeNames.h"
#include "OptionParsing.h"

namespace tarv::tool {

namespace {

struct InfoOptions {
  std::vector<std::string> files;
  InputOptions input;
  bool noRange = false;
};

std::string coordinatesText(const WorldCoordinates& w) {
  return formatDisplayNumber(w.x) + ", " + formatDisplayNumber(w.y) + ", " + formatDisplayNumber(w.z) + " (t " +
         formatDisplayNumber(w.t) + ")";
}

void printInfo(const std::string& path, const InfoOptions& options) {
  OpenedDataset opened = openDataset(path, options.input, Access::lazy);
  Dataset* dataset = opened.get();
  const DatasetCoordinates size = dataset->getSize();
  const DatasetWorldEmbedding& embedding = dataset->getWorldEmbedding();

  std::ostringstream out;
  out << path << "\n";
  out << "  format        " << fileFormatDisplayName(opened.format) << (opened.lazy ? " (read lazily)" : "") << "\n";
  out << "  size          " << size.x << " x " << size.y << " x " << size.z << "\n";
  out << "  time steps    " << size.t << "\n";
  out << "  components    " << size.c << "\n";
  out << "  element type  " << elementTypeName(dataset->getElementType()) << "\n";
  out << "  spacing       " << coordinatesText(embedding.getVoxelSpacing()) << "\n";
  out << "  origin        " << coordinatesText(embedding.getDatasetOrigin()) << "\n";
  const TransformationMatrix orientation = embedding.getOrientation();
  out << "  direction    ";
  for (int axis = 0; axis < 3; ++axis)
    out << (axis == 0 ? " " : " / ") << formatDisplayNumber(orientation(0, axis)) << ", "
        << formatDisplayNumber(orientation(1, axis)) << ", " << formatDisplayNumber(orientation(2, axis));
  out << "  (LPS world directions of the voxel axes x / y / z)\n";
  if (const ModalityLUT& lut = dataset->getModalityLUT(); lut.isValid())
    out << "  rescale       slope " << formatDisplayNumber(lut.getSlope()) << ", intercept "
        << formatDisplayNumber(lut.getIntercept()) << "\n";
  if (!options.noRange) {
    // The range of the elements themselves: a range the file states is not taken on trust.
    dataset->setMinimumAndMaximumValueCacheStatus(false);
    const double minimum = dataset->getMinimumValue();
    const double maximum = dataset->getMaximumValue();
    throwIfReadFailed(opened);
    out << "  value range   " << formatDisplayNumber(minimum) << " .. " << formatDisplayNumber(maximum) << "\n";
  } else if (dataset->getMinimumAndMaximumValueCacheStatus()) {
    out << "  header range  " << formatDisplayNumber(dataset->getMinimumValue()) << " .. "
        << formatDisplayNumber(dataset->getMaximumValue()) << " (stated by the file, not read)\n";
  }
  std::error_code error;
  if (!std::filesystem::is_directory(path, error))
    out << "  file size     " << std::filesystem::file_size(path, error) << " bytes\n";
  if (opened.format == FileFormat::pagedTiff) {
    out << "  paged TIFF header:\n";
    std::istringstream header(pagedTiffHeaderText(path));
    std::string line;
    while (std::getline(header, line)) out << "    " << line << "\n";
  }
  std::cout << out.str() << std::flush;
}

}  // namespace

Command addInfoCommand(CLI::App& tarv, const GlobalOptions&) {
  auto options = std::make_shared<InfoOptions>();
  CLI::App* app = tarv.add_subcommand("info", "Show what dataset files hold: format, size, type, geometry, range");
  app->add_option("FILE", options->files, "Dataset files")->required();
  app->add_flag("--no-range", options->noRange, "Do not read the elements for the value range");
  addInputOptions(*app, options->input);
  return Command{app, [options] {
                   for (const std::string& file : options->files) printInfo(file, *options);
                 }};
}

}  // namespace tarv::tool
