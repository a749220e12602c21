// tarv: the command-line tool of the dataset library. Each subcommand lives in its own
// <Name>Command.cpp; this file parses the command line and runs the chosen subcommand. Exit
// status: 0 on success (and for --help and --version), 1 on a usage or input error with one line
// on the standard error stream, 130 when interrupted.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "Commands.h"
#include "engine/Evaluation.h"
#include "Interrupt.h"
#include "LibraryMessages.h"
#include "ProgressBar.h"
#include "ToolError.h"

using namespace tarv::tool;

namespace {

std::string oneLine(std::string text) {
  for (char& c : text)
    if (c == '\n' || c == '\r') c = ' ';
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

void printError(const std::string& where, const std::string& message) {
  std::fprintf(stderr, "%s: %s\n", where.c_str(), oneLine(message).c_str());
}

void printLibraryLog(const GlobalOptions& global) {
  if (global.verbose && !LibraryMessages::log().empty())
    std::fprintf(stderr, "library messages:\n%s", LibraryMessages::log().c_str());
}

}  // namespace

int main(int argc, char** argv) {
  LibraryMessages::install();
  Interrupt::install();

  GlobalOptions global;
  global.progress = ProgressBar::enabledByDefault();

  CLI::App tarv("tarv: look at, convert, filter and measure medical image datasets.", "tarv");
  tarv.set_version_flag("--version", "tarv " TARV_VERSION);
  tarv.require_subcommand(1);
  tarv.fallthrough();
  bool progress = false;
  bool noProgress = false;
  tarv.add_flag("--progress", progress, "Draw progress bars on the standard error stream (default: on a terminal)");
  tarv.add_flag("--no-progress", noProgress, "Draw no progress bars");
  tarv.add_flag("--verbose", global.verbose, "Print the messages of the library, libtiff and VTK at the end");
  int threads = 0;
  tarv.add_option("--threads", threads, "Threads that computing splits its work over (default 0: one per core; 1: none)")
      ->check(CLI::NonNegativeNumber);
  tarv.footer("Run 'tarv COMMAND --help' for the options of a command.");

  std::vector<Command> commands = {
      addInfoCommand(tarv, global),       addConvertCommand(tarv, global), addStatsCommand(tarv, global),
      addSliceCommand(tarv, global),      addFilterCommand(tarv, global),  addSegCompareCommand(tarv, global),
      addSegCleanCommand(tarv, global),   addDemoCommand(tarv, global),
  };

  try {
    tarv.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    std::fputs(tarv.help().c_str(), stdout);
    return 0;
  } catch (const CLI::CallForAllHelp&) {
    std::fputs(tarv.help("", CLI::AppFormatMode::All).c_str(), stdout);
    return 0;
  } catch (const CLI::CallForVersion& version) {
    std::printf("%s\n", version.what());
    return 0;
  } catch (const CLI::ParseError& error) {
    std::string where = "tarv";
    for (const CLI::App* sub : tarv.get_subcommands()) where += " " + sub->get_name();
    if (where == "tarv" && argc > 1 && argv[1][0] != '-') {
      std::string names;
      for (const Command& command : commands) names += (names.empty() ? "" : ", ") + command.app->get_name();
      printError(where, "unknown command '" + std::string(argv[1]) + "' (commands: " + names + ")");
      return 1;
    }
    printError(where, std::string(error.what()) + " (see '" + where + " --help')");
    return 1;
  }
  tarv::engine::setThreadCount(threads);
  if (progress) global.progress = true;
  if (noProgress) global.progress = false;

  for (const Command& command : commands) {
    if (!command.app->parsed()) continue;
    const std::string where = "tarv " + command.app->get_name();
    try {
      command.run();
      printLibraryLog(global);
      return 0;
    } catch (const ToolError& error) {
      printLibraryLog(global);
      printError(where, error.what());
      return 1;
    } catch (const ToolInterrupted& interrupted) {
      printError(where, interrupted.what());
      return 130;
    } catch (const std::bad_alloc&) {
      printError(where, "not enough memory");
      return 1;
    } catch (const std::exception& error) {
      printError(where, error.what());
      return 1;
    }
  }
  return 1;
}
