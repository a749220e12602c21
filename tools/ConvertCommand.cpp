// tarv convert IN OUT: from any readable format of the library to any writable one.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <string>

#include "Commands.h"
#include "DatasetFiles.h"
#include "elementtypes/ElementTypeNames.h"

namespace tarv::tool {

namespace {

struct ConvertOptions {
  std::string in;
  std::string out;
  InputOptions input;
  OutputOptions output;
};

void runConvert(ConvertOptions& options, const GlobalOptions& global) {
  OpenedDataset opened = openDataset(options.in, options.input, Access::lazy);
  options.output.raw = options.input.raw;
  options.output.sourceName = options.in;
  options.output.work = "converting " + options.in;
  options.output.showProgress = global.progress;
  const WrittenFile written = writeDataset(opened.get(), options.out, options.output);
  throwIfReadFailed(opened);
  std::cout << "wrote " << options.out << ": " << fileFormatDisplayName(written.format) << ", "
            << sizeText(written.size) << ", " << elementTypeName(written.elementType) << ", " << written.bytes
            << " bytes\n";
}

}  // namespace

Command addConvertCommand(CLI::App& tarv, const GlobalOptions& global) {
  auto options = std::make_shared<ConvertOptions>();
  CLI::App* app = tarv.add_subcommand("convert", "Convert a dataset file to another format or element type");
  app->add_option("IN", options->in, "Input dataset file")->required();
  app->add_option("OUT", options->out, "Output dataset file (replaced only when complete)")->required();
  addOutputOptions(*app, options->output, true);
  addInputOptions(*app, options->input);
  app->footer(formatsHelpFooter() +
              "TARV1, paged TIFF, TIFF stack and DICOM inputs are read block by block, and paged TIFF, TARV1 and raw outputs written slab by "
              "slab,\nso a lazily read input is never held whole. A .tif input that is not a paged TIFF file is read as a TIFF stack.\n"
              "Formats of one time step need --time for data with several. The --raw-* options describe raw output\n"
              "files as well (fillers and byte order; the element type is the data's or --type).");
  return Command{app, [options, &global] { runConvert(*options, global); }};
}

}  // namespace tarv::tool
