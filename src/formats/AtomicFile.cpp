#include "formats/AtomicFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>


namespace tarv::formats {

namespace {

// Temporary paths that a signal handler may have to remove: fixed storage, no allocation.
constexpr int kSlotCount = 16;
constexpr std::size_t kPathCapacity = 4096;
char slotPaths[kSlotCount][kPathCapacity];
volatile std::sig_atomic_t slotUsed[kSlotCount];

int claimSlot(const std::string& path) {
  if (path.size() >= kPathCapacity) return -1;
  for (int i = 0; i < kSlotCount; ++i) {
    if (slotUsed[i] == 0) {
      std::memcpy(slotPaths[i], path.c_str(), path.size() + 1);
      slotUsed[i] = 1;
      return i;
    }
  }
  return -1;
}

void releaseSlot(int slot) {
  if (slot >= 0) slotUsed[slot] = 0;
}

std::string systemReason() { return std::strerror(errno); }

}  // namespace

Status AtomicFile::open(const std::string& targetPath) {
  namespace fs = std::filesystem;
  if (!temporary.empty()) return invalidArgumentError("the file is open already");
  target = targetPath;
  const fs::path path(target);
  if (path.filename().empty()) return invalidArgumentError("not a file name");
  std::error_code error;
  if (fs::is_directory(path, error)) return invalidArgumentError("is a directory");
  const fs::path directory = path.parent_path().empty() ? fs::path(".") : path.parent_path();
  if (!fs::is_directory(directory, error))
    return notFoundError("cannot write: directory " + directory.string() + " does not exist");

  std::string pattern = (directory / ("." + path.filename().string() + ".tmp-XXXXXX")).string();
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  const int descriptor = ::mkstemp(buffer.data());
  if (descriptor < 0) return ioError("cannot write: " + systemReason());
  ::close(descriptor);
  temporary = buffer.data();
  slot = claimSlot(temporary);
  return okStatus();
}

AtomicFile::~AtomicFile() {
  if (!committed && !temporary.empty()) ::unlink(temporary.c_str());
  releaseSlot(slot);
}

long long AtomicFile::getTemporarySize() const {
  struct stat status {};
  if (::stat(temporary.c_str(), &status) != 0) return -1;
  return static_cast<long long>(status.st_size);
}

Status AtomicFile::commit() {
  if (temporary.empty() || committed) return invalidArgumentError("no file to commit");
  struct stat status {};
  mode_t mode = 0;
  if (::stat(target.c_str(), &status) == 0) {
    mode = status.st_mode & 07777;
  } else {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    mode = 0666 & ~mask;
  }
  ::chmod(temporary.c_str(), mode);
  if (::rename(temporary.c_str(), target.c_str()) != 0) return ioError("cannot write: " + systemReason());
  committed = true;
  releaseSlot(slot);
  slot = -1;
  return okStatus();
}

void AtomicFile::removeAllTemporaryFiles() {
  for (int i = 0; i < kSlotCount; ++i)
    if (slotUsed[i] != 0) ::unlink(slotPaths[i]);
}

}  // namespace tarv::formats
