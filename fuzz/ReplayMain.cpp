// Runs a harness over its corpus without libFuzzer: every file given, and every file under every
// folder given, in name order, through LLVMFuzzerTestOneInput, as libFuzzer's replay (-runs=0)
// does. Built with the sanitizer build of the library, it makes the corpora part of the test suite.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  LLVMFuzzerInitialize(&argc, &argv);
  std::vector<std::filesystem::path> inputs;
  for (int k = 1; k < argc; ++k) {
    const std::filesystem::path given(argv[k]);
    if (std::filesystem::is_directory(given)) {
      for (const auto& entry : std::filesystem::recursive_directory_iterator(given))
        if (entry.is_regular_file()) inputs.push_back(entry.path());
    } else {
      inputs.push_back(given);
    }
  }
  std::sort(inputs.begin(), inputs.end());
  if (inputs.empty()) {
    std::cerr << "no inputs to replay\n";
    return 1;
  }
  for (const std::filesystem::path& input : inputs) {
    std::ifstream in(input, std::ios::binary);
    if (!in) {
      std::cerr << "cannot read " << input << "\n";
      return 1;
    }
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::cout << "replaying " << input.filename().string() << " (" << bytes.size() << " bytes)" << std::endl;
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
  std::cout << "replayed " << inputs.size() << " inputs" << std::endl;
  return 0;
}
