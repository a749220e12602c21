#ifndef TARV_TOOLS_TOOLERROR_H
#define TARV_TOOLS_TOOLERROR_H

#include <stdexcept>
#include <string>

namespace tarv::tool {

// A usage or input error: the command stops and its message becomes the one line on the
// standard error stream. The message names the file (when there is one) and the reason.
class ToolError : public std::runtime_error {
public:
  explicit ToolError(const std::string& message) : std::runtime_error(message) {}
  ToolError(const std::string& file, const std::string& reason) : std::runtime_error(file + ": " + reason) {}
};

// The user interrupted the command (Ctrl-C); nothing was written.
class ToolInterrupted : public std::runtime_error {
public:
  explicit ToolInterrupted(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace tarv::tool

#endif
