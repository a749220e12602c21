#ifndef TARV_FORMATS_ATOMICFILE_H
#define TARV_FORMATS_ATOMICFILE_H

#include <string>

#include "status/Status.h"

namespace tarv::formats {

// An output file that appears complete or not at all: the writer writes to a temporary file
// beside the target (same directory, so the final rename cannot cross file systems), and
// commit() renames it over the target. An AtomicFile destroyed without commit() removes its
// temporary file, so a failed or interrupted run never touches an existing target.
class AtomicFile {
public:
  AtomicFile() = default;
  ~AtomicFile();
  // Creates the temporary file for target; fails with the reason when that is impossible.
  Status open(const std::string& target);
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  const std::string& getTargetPath() const { return target; }
  const std::string& getTemporaryPath() const { return temporary; }
  // Size of the temporary file in bytes, -1 when it is gone.
  long long getTemporarySize() const;
  // Gives the file the target's permissions (or the usual ones for a new file) and renames it
  // into place; fails with the reason.
  Status commit();

  // Removes the temporary files of every uncommitted AtomicFile; safe in a signal handler.
  static void removeAllTemporaryFiles();

private:
  std::string target;
  std::string temporary;
  int slot = -1;
  bool committed = false;
};

}  // namespace tarv::formats

#endif
