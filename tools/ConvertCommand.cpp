// tarv convert IN OUT: from any readable format of the library to any writable one.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <string>

#include "Commands.h"
#include "DatasetFiles.h"
#include "elementtypes/ElementTypeNames.h"
#include "LibraryMessages.h"

namespace tarv::tool {

namespace {

struct ConvertOptions {
  std::string in;
  std::string out;
  InputOptions input;
  OutputOptions output;
};

void runConvert(ConvertOptions& options) {
  LibraryMessages messages;
  OpenedDataset opened = openDataset(options.in, options.input, Access::lazy);
  options.output.raw = options.input.raw;
  options.output.sourceName = options.in;
  const WrittenFile written = writeDataset(opened.get(), options.out, options.output);
  throwIfReadFailed(messages, options.in);
  std::cout << "wrote " << options.out << ": " << fileFormatDisplayName(written.format) << ", "
            << sizeText(written.size) << ", " << elementTypeName(written.elementType) << ", " << written.bytes
            << " bytes\n";
}

}  // namespace

Command addConvertCommand(CLI::App& tarv, const GlobalOptions&) {
  auto options = std::make_shared<ConvertOptions>();
  CLI::App* app = tarv.add_subcommand("convert", "Convert a dataset file to another format or element type");
  app->add_option("IN", options->in, "Input dataset file")->required();
  app->add_option("OUT", options->out, "Output dataset file (replaced only when complete)")->required();
  addOutputOptions(*app, options->output, true);
  addInputOptions(*app, options->input);
  app->footer(
      "Formats, chosen by the extension or by --input-format/--format:\n"
      "  tarv1     .tarv        TARV1: x, y, z, t; 16-bit quantised values, read back as float\n"
      "  tiff      .tif .tiff   paged (tiled) TIFF: x, y, z; bool..uint32 and float; no geometry\n"
      "  vtk-tiff               TIFF through VTK, one page per slice: uint8, uint16, float; no geometry\n"
      "  raw       .raw         headerless samples: layout by the --raw-* options\n"
      "  png       .png         one plane of uint8 or uint16\n"
      "  jpeg      .jpg .jpeg   one plane of uint8\n"
      "  vti       .vti         VTK XML image data: x, y, z with spacing and origin\n"
      "TARV1 and paged TIFF inputs are read block by block. A .tif input that is not tiled is read through VTK.\n"
      "Formats of one time step need --time for data with several. The --raw-* options describe raw output\n"
      "files as well (fillers and byte order; the element type is the data's or --type).");
  return Command{app, [options] { runConvert(*options); }};
}

}  // namespace tarv::tool
