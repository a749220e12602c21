#ifndef TARV_TOOLS_TESTS_TOOLTESTSUPPORT_H
#define TARV_TOOLS_TESTS_TOOLTESTSUPPORT_H

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "dataset/Dataset.h"
#include "dataset/DatasetHandle.h"
#include "dataset/FileReadDataset.h"
#include "dataset/RawDatasetFileReadWrite.h"
#include "dataset/TiffFileReadModule.h"

namespace tarv::tool::test {

// A fresh directory under the system's temporary directory, removed with everything in it.
class TemporaryDirectory {
public:
  TemporaryDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tarv-tool-test-XXXXXX").string();
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (::mkdtemp(buffer.data()) != nullptr) path = buffer.data();
  }
  ~TemporaryDirectory() {
    std::error_code error;
    if (!path.empty()) std::filesystem::remove_all(path, error);
  }
  std::string file(const std::string& name) const { return (std::filesystem::path(path) / name).string(); }
  // Names of the directory's entries, hidden ones included.
  std::vector<std::string> entries() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path)) names.push_back(entry.path().filename());
    return names;
  }

  std::string path;
};

struct RunResult {
  int status = -1;
  std::string out;
  std::string err;

  std::vector<std::string> errorLines() const {
    std::vector<std::string> lines;
    std::istringstream stream(err);
    std::string line;
    while (std::getline(stream, line))
      if (!line.empty()) lines.push_back(line);
    return lines;
  }
};

inline std::string readText(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

inline void writeText(const std::string& path, const std::string& text) {
  std::ofstream stream(path, std::ios::binary);
  stream << text;
}

// Runs the tool as a user would, in directory, with the output streams captured.
inline RunResult runTool(const std::vector<std::string>& arguments, const std::string& directory) {
  RunResult result;
  const std::string outPath = directory + "/.stdout";
  const std::string errPath = directory + "/.stderr";
  const pid_t child = ::fork();
  if (child == 0) {
    if (::chdir(directory.c_str()) != 0) ::_exit(127);
    if (std::freopen(outPath.c_str(), "w", stdout) == nullptr) ::_exit(127);
    if (std::freopen(errPath.c_str(), "w", stderr) == nullptr) ::_exit(127);
    std::vector<char*> argv;
    std::string program = TARV_TOOL_PATH;
    argv.push_back(program.data());
    std::vector<std::string> copies = arguments;
    for (std::string& argument : copies) argv.push_back(argument.data());
    argv.push_back(nullptr);
    ::execv(program.c_str(), argv.data());
    ::_exit(127);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = readText(outPath);
  result.err = readText(errPath);
  std::filesystem::remove(outPath);
  std::filesystem::remove(errPath);
  return result;
}

// A new in-memory dataset of the type, filled by value(x, y, z, t).
inline DatasetHandle makeDataset(const DatasetCoordinates& size, TARVElementType type,
                                 const std::function<double(int, int, int, int)>& value,
                                 const DatasetWorldEmbedding& embedding = DatasetWorldEmbedding()) {
  Dataset* dataset = new Dataset(true);
  DatasetHandle handle(dataset);
  dataset->newDataset(size, type, embedding);
  for (auto it = dataset->getStartCoordinatesIterator(); it.valid; dataset->incrementCoordinatesIterator(it))
    dataset->setElement<double>(it, value(it.x, it.y, it.z, it.t));
  return handle;
}

// Writes the dataset as a raw file of its own element type.
inline void writeRaw(Dataset* dataset, const std::string& path) {
  RawDatasetFileReadWrite writer;
  writer.fileName = path;
  writer.elementType = dataset->getElementType();
  writer.write(dataset);
}

// Reads a raw file of the given shape and type.
inline DatasetHandle readRaw(const std::string& path, const DatasetCoordinates& size, TARVElementType type) {
  Dataset* dataset = new Dataset(true);
  DatasetHandle handle(dataset);
  dataset->newDataset(size, type, DatasetWorldEmbedding());
  RawDatasetFileReadWrite reader;
  reader.fileName = path;
  reader.elementType = type;
  reader.read(dataset);
  return handle;
}

// Reads a paged TIFF file completely.
inline DatasetHandle readPagedTiff(const std::string& path) {
  FileReadDataset file;
  file.setFileReadModule(new TiffFileReadModule());
  Dataset* dataset = new Dataset(true);
  DatasetHandle handle(dataset);
  if (file.openFile(path)) dataset->copyFrom(&file);
  return handle;
}

// The number of elements whose values differ (as double), or -1 for different shapes.
inline long differingElements(Dataset* a, Dataset* b) {
  if (a->getSize() != b->getSize()) return -1;
  long count = 0;
  for (auto it = a->getStartCoordinatesIterator(); it.valid; a->incrementCoordinatesIterator(it)) {
    const DatasetCoordinates& c = it;
    if (a->getElement<double>(c) != b->getElement<double>(c)) ++count;
  }
  return count;
}

}  // namespace tarv::tool::test

#endif
