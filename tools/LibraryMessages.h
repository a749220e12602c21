#ifndef TARV_TOOLS_LIBRARYMESSAGES_H
#define TARV_TOOLS_LIBRARYMESSAGES_H

#include <string>

namespace tarv::tool {

// The library, libtiff and VTK print diagnostics of their own on the standard error stream. The
// tool keeps them off the terminal, so that a failure ends with one line of its own, and prints
// them only for --verbose. (Why something failed the tool learns from the library's Status
// results, never from these messages.)
//
// install() redirects std::cerr and the libtiff and VTK message handlers into one log for the
// rest of the run; the tool itself writes to stderr through C stdio.
class LibraryMessages {
public:
  static void install();
  // The whole log, for --verbose runs and tests.
  static const std::string& log();
};

}  // namespace tarv::tool

#endif
