#ifndef TARV_TOOLS_ATOMICFILE_H
#define TARV_TOOLS_ATOMICFILE_H

#include <string>

namespace tarv::tool {

// An output file that appears complete or not at all: the writer writes to a temporary file
// beside the target (same directory, so the final rename cannot cross file systems), and
// commit() renames it over the target. An AtomicFile destroyed without commit() removes its
// temporary file, so a failed or interrupted run never touches an existing target.
class AtomicFile {
public:
  // Creates the temporary file; throws ToolError naming the target when that is impossible.
  explicit AtomicFile(const std::string& target);
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  const std::string& getTargetPath() const { return target; }
  const std::string& getTemporaryPath() const { return temporary; }
  // Size of the temporary file in bytes, -1 when it is gone.
  long long getTemporarySize() const;
  // Gives the file the target's permissions (or the usual ones for a new file) and renames it
  // into place; throws ToolError naming the target on failure.
  void commit();

  // Removes the temporary files of every uncommitted AtomicFile; safe in a signal handler.
  static void removeAllTemporaryFiles();

private:
  std::string target;
  std::string temporary;
  int slot = -1;
  bool committed = false;
};

}  // namespace tarv::tool

#endif
