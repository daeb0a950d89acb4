// A temporary output file of one of the product's tools.
#pragma once

#include <string>

namespace corvane {

// Removes what an earlier run may have left at `path`, and removes the file again on destruction,
// whatever way the scope is left. Between the two the owner creates and fills it.
class ScratchFile {
 public:
  explicit ScratchFile(std::string path);
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace corvane
