// tarv slice FILE OUT.png --z N: one plane windowed to 8 bits, to look at.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "DatasetFiles.h"
#include "OptionParsing.h"
#include "SliceImage.h"
#include "ToolError.h"

namespace tarv::tool {

namespace {

struct SliceOptions {
  std::string file;
  std::string out;
  int z = 0;
  int t = 0;
  int component = -1;
  std::string window;
  InputOptions input;
};

void runSlice(const SliceOptions& options) {
  Window window;
  if (!options.window.empty()) {
    const std::vector<double> values = parseNumberList(options.window, "--window", 2, 2);
    if (!(values[0] < values[1])) throw ToolError("--window " + options.window, "LOW must be below HIGH");
    window.low = values[0];
    window.high = values[1];
  }
  OpenedDataset opened = openDataset(options.file, options.input, Access::lazy);
  const Window used = writeSlicePng(opened.get(), options.file, options.z, options.t,
                                    options.window.empty() ? nullptr : &window, options.out, options.component);
  throwIfReadFailed(opened);
  std::cout << "wrote " << options.out << ": plane z " << options.z << ", t " << options.t << ", window "
            << formatDisplayNumber(used.low) << " .. " << formatDisplayNumber(used.high) << "\n";
}

}  // namespace

Command addSliceCommand(CLI::App& tarv, const GlobalOptions&) {
  auto options = std::make_shared<SliceOptions>();
  CLI::App* app = tarv.add_subcommand("slice", "Write one plane as an 8-bit PNG image to look at");
  app->footer("Values from LOW to HIGH of --window become black to white; below and above are clipped.");
  app->add_option("FILE", options->file, "Dataset file")->required();
  app->add_option("OUT", options->out, "PNG file to write")->required();
  app->add_option("--z", options->z, "The plane")->required()->check(CLI::NonNegativeNumber);
  app->add_option("--t", options->t, "The time step (default 0)")->check(CLI::NonNegativeNumber);
  app->add_option("--component", options->component, "The component (needed for data of several)")
      ->check(CLI::NonNegativeNumber);
  app->add_option("--window", options->window, "LOW,HIGH (default: the plane's value range)");
  addInputOptions(*app, options->input);
  return Command{app, [options] { runSlice(*options); }};
}

}  // namespace tarv::tool
