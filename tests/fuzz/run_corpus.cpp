// The main function of a fuzz target where there is no fuzzer: runs each file of the corpus once.
#include <algorithm>
#include <filesystem>
#include <iostream>

#include "tests/fuzz/fuzz.h"
#include "tests/support/scratch_dir.h"

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> files;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      if (entry.is_regular_file()) files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  if (files.empty()) {
    std::cerr << "no input\n";
    return 1;
  }
  for (const auto& file : files) {
    std::cerr << file.string() << '\n';  // the last one named is the one that failed
    const std::string input = corvane::test::read_file(file);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
  }
  std::cerr << files.size() << " inputs\n";
  return 0;
}
