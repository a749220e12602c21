#include "formats/FileStatus.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <unordered_map>

#include "dataset/DatasetFileReadModule.h"
#include "dataset/JPEGDatasetFileReadWrite.h"
#include "dataset/PNGDatasetFileReadWrite.h"
#include "dataset/TIFFDatasetFileReadWrite.h"
#include "dataset/VTIDatasetFileReadWrite.h"

namespace tarv::formats {

namespace {

struct ModuleStatus {
  Status open;
  Status block;
};

// Keyed by module; modules are used by one thread at a time, but different modules by several.
std::mutex& moduleMutex() {
  static std::mutex mutex;
  return mutex;
}

std::unordered_map<const DatasetFileReadModule*, ModuleStatus>& moduleStatus() {
  static auto* table = new std::unordered_map<const DatasetFileReadModule*, ModuleStatus>();
  return *table;
}

}  // namespace

Status checkReadableFile(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) return notFoundError("no such file");
    return ioError(std::strerror(errno));
  }
  if (S_ISDIR(status.st_mode)) return invalidArgumentError("is a directory");
  if (!S_ISREG(status.st_mode)) return invalidArgumentError("not a regular file");
  if (::access(path.c_str(), R_OK) != 0) return ioError("cannot read: " + std::string(std::strerror(errno)));
  return okStatus();
}

Status openForReadingFailure(const std::string& path) {
  const int error = errno;
  if (path.empty()) return invalidArgumentError("no file name");
  Status status = checkReadableFile(path);
  if (!status.ok()) return status;
  return ioError("cannot open: " + std::string(error != 0 ? std::strerror(error) : "unknown reason"));
}

Status openForWritingFailure(const std::string& path) {
  const int error = errno;
  if (path.empty()) return invalidArgumentError("no file name");
  const std::filesystem::path file(path);
  std::filesystem::path directory = file.parent_path();
  if (directory.empty()) directory = ".";
  std::error_code code;
  if (!std::filesystem::exists(directory, code)) return notFoundError("no such directory");
  if (std::filesystem::is_directory(file, code)) return invalidArgumentError("is a directory");
  return ioError("cannot create: " + std::string(error != 0 ? std::strerror(error) : "unknown reason"));
}

Status checkOpenedForReading(bool opened, const std::string& path) {
  return opened ? checkReadableFile(path) : openForReadingFailure(path);
}

std::string sizeText(const DatasetCoordinates& size) {
  std::string text = std::to_string(size.x) + " x " + std::to_string(size.y) + " x " + std::to_string(size.z);
  if (size.t != 1) text += ", t " + std::to_string(size.t);
  if (size.c != 1) text += ", " + std::to_string(size.c) + " components";
  return text;
}

void noteOpenStatus(const DatasetFileReadModule* module, const Status& status) {
  std::lock_guard<std::mutex> lock(moduleMutex());
  ModuleStatus& entry = moduleStatus()[module];
  entry.open = status;
  entry.block = Status();
}

void noteBlockReadFailure(const DatasetFileReadModule* module, const Status& status) {
  if (status.ok()) return;
  std::lock_guard<std::mutex> lock(moduleMutex());
  ModuleStatus& entry = moduleStatus()[module];
  if (entry.block.ok()) entry.block = status;
}

void clearReadModuleStatus(const DatasetFileReadModule* module) {
  std::lock_guard<std::mutex> lock(moduleMutex());
  moduleStatus().erase(module);
}

Status lastOpenStatus(const DatasetFileReadModule& module) {
  if (module.isFileOpen()) return okStatus();
  std::lock_guard<std::mutex> lock(moduleMutex());
  const auto found = moduleStatus().find(&module);
  if (found == moduleStatus().end()) return invalidArgumentError("the read module cannot use the file");
  return found->second.open;
}

Status blockReadStatus(const DatasetFileReadModule& module) {
  std::lock_guard<std::mutex> lock(moduleMutex());
  const auto found = moduleStatus().find(&module);
  return found == moduleStatus().end() ? okStatus() : found->second.block;
}

Status readVtkFile(VTKDatasetFileReadWrite& file, Dataset* dataset, int t) {
  if (auto* tiff = dynamic_cast<TIFFDatasetFileReadWrite*>(&file)) return readVtkTiffFile(*tiff, dataset, t);
  if (auto* png = dynamic_cast<PNGDatasetFileReadWrite*>(&file)) return readPngFile(*png, dataset, t);
  if (auto* jpeg = dynamic_cast<JPEGDatasetFileReadWrite*>(&file)) return readJpegFile(*jpeg, dataset, t);
  if (auto* vti = dynamic_cast<VTIDatasetFileReadWrite*>(&file)) return readVtiFile(*vti, dataset, t);
  if (auto* wrapper = dynamic_cast<VTKWrapperDatasetFileReadWrite*>(&file))
    return readThroughVtkReader(*wrapper, dataset, t);
  file.read(dataset, t);
  return okStatus();
}

Status writeVtkFile(VTKDatasetFileReadWrite& file, Dataset* dataset, int t) {
  if (auto* vti = dynamic_cast<VTIDatasetFileReadWrite*>(&file)) return writeVtiFile(*vti, dataset, t);
  if (auto* wrapper = dynamic_cast<VTKWrapperDatasetFileReadWrite*>(&file))
    return writeThroughVtkWriter(*wrapper, dataset, t);
  file.write(dataset, t);
  return okStatus();
}

}  // namespace tarv::formats
