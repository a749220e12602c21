#ifndef TARV_TOOLS_COMMANDS_H
#define TARV_TOOLS_COMMANDS_H

#include <functional>

namespace CLI {
class App;
}

namespace tarv::tool {

// Options that every command shares.
struct GlobalOptions {
  // Draw progress bars on the standard error stream (default: when it is a terminal).
  bool progress = false;
  // After the command, print what the library, libtiff and VTK reported.
  bool verbose = false;
};

// A subcommand: its parser and what it does once parsed. run() throws ToolError on a usage or
// input error and ToolInterrupted when the user stopped it.
struct Command {
  CLI::App* app = nullptr;
  std::function<void()> run;
};

Command addInfoCommand(CLI::App& tarv, const GlobalOptions& global);
Command addConvertCommand(CLI::App& tarv, const GlobalOptions& global);
Command addStatsCommand(CLI::App& tarv, const GlobalOptions& global);
Command addSliceCommand(CLI::App& tarv, const GlobalOptions& global);
Command addFilterCommand(CLI::App& tarv, const GlobalOptions& global);
Command addSegCompareCommand(CLI::App& tarv, const GlobalOptions& global);
Command addSegCleanCommand(CLI::App& tarv, const GlobalOptions& global);
Command addDemoCommand(CLI::App& tarv, const GlobalOptions& global);

}  // namespace tarv::tool

#endif
