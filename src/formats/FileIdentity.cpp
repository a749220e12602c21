#include "formats/FileIdentity.h"

#include <sys/stat.h>

namespace tarv::formats {

FileIdentity FileIdentity::of(const void* statInfo) {
  const struct stat& info = *static_cast<const struct stat*>(statInfo);
  FileIdentity identity;
  identity.known = true;
  identity.device = static_cast<unsigned long long>(info.st_dev);
  identity.inode = static_cast<unsigned long long>(info.st_ino);
  identity.size = static_cast<long long>(info.st_size);
  identity.modifiedSeconds = static_cast<long long>(info.st_mtim.tv_sec);
  identity.modifiedNanoseconds = static_cast<long long>(info.st_mtim.tv_nsec);
  return identity;
}

FileIdentity FileIdentity::ofPath(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return FileIdentity();
  return of(&info);
}

FileIdentity FileIdentity::ofDescriptor(int descriptor) {
  struct stat info {};
  if (descriptor < 0 || ::fstat(descriptor, &info) != 0) return FileIdentity();
  return of(&info);
}

bool FileIdentity::sameContentAs(const FileIdentity& now) const {
  if (!now.known) return false;
  // Cutting a file short keeps its first bytes: what is left reads as before, what is gone fails
  // to read.
  if (now.size < size) return true;
  return now.size == size && now.modifiedSeconds == modifiedSeconds && now.modifiedNanoseconds == modifiedNanoseconds;
}

Status FileIdentity::changed(const std::string& what) const {
  return ioError(what + ": the file changed on disk since it was opened");
}

Status FileIdentity::checkPath(const std::string& path, const std::string& what) const {
  if (!known) return okStatus();
  const FileIdentity now = ofPath(path);
  if (!now.known) return ioError(what + ": the file is gone since it was opened");
  if (now.device != device || now.inode != inode || !sameContentAs(now)) return changed(what);
  return okStatus();
}

Status FileIdentity::checkDescriptor(int descriptor, const std::string& what) const {
  if (!known) return okStatus();
  if (!sameContentAs(ofDescriptor(descriptor))) return changed(what);
  return okStatus();
}

Status FileIdentity::checkOpenedPath(const std::string& path, const std::string& what) const {
  if (!known) return okStatus();
  const FileIdentity now = ofPath(path);
  if (!now.known || now.device != device || now.inode != inode) return okStatus();
  if (!sameContentAs(now)) return changed(what);
  return okStatus();
}

}  // namespace tarv::formats
