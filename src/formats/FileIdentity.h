#ifndef TARV_FORMATS_FILEIDENTITY_H
#define TARV_FORMATS_FILEIDENTITY_H

#include <string>

#include "status/Status.h"

namespace tarv::formats {

// What a file was when a lazy reader described it: device, inode, size and modification time.
// A reader that reads blocks later compares the file with it before each read, so that a file
// rewritten or grown since it was opened gives an error instead of other bytes than the ones the
// reader described. A file only cut short keeps its first bytes: they read as before, and blocks
// past its new end fail to read. (File times are as fine as the kernel's clock tick: a rewrite of
// the same size within a few milliseconds of the previous write is not seen.)
class FileIdentity {
public:
  FileIdentity() = default;
  // The file at path now; unknown (and every check ok) when it cannot be examined.
  static FileIdentity ofPath(const std::string& path);
  // The file open as descriptor.
  static FileIdentity ofDescriptor(int descriptor);

  bool isKnown() const { return known; }

  // For readers that open the file by its name for every read: ok when path still names the same
  // file with the same size and modification time. A file replaced, removed, rewritten or grown
  // is "<what>: the file changed on disk since it was opened" (or "... is gone").
  Status checkPath(const std::string& path, const std::string& what) const;
  // For readers that keep the file open: the open file (descriptor) must have the same size and
  // modification time. A replaced or removed name does not matter to them.
  Status checkDescriptor(int descriptor, const std::string& what) const;
  // For readers that keep the file open through a stream without a descriptor: the file path
  // names must have the same size and modification time while it is still the file that was
  // opened; a name that now names another file, or none, does not matter to them.
  Status checkOpenedPath(const std::string& path, const std::string& what) const;

private:
  static FileIdentity of(const void* statInfo);
  bool sameContentAs(const FileIdentity& now) const;
  Status changed(const std::string& what) const;

  bool known = false;
  unsigned long long device = 0;
  unsigned long long inode = 0;
  long long size = 0;
  long long modifiedSeconds = 0;
  long long modifiedNanoseconds = 0;
};

}  // namespace tarv::formats

#endif
