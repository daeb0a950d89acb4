// A temporary output file of one of the product's tools.
#pragma once

#include <string>

namespace corvane {

// Removes the file at `path`, which an earlier run may have left, and removes it again on
// destruction. In between the owner creates and fills it.
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
