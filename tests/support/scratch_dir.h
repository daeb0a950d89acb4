// A directory of a test's own, and plain reading and writing of files in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace corvane::test {

// A fresh directory (mode 0700), removed with everything in it at the end. Throws when the
// directory cannot be made.
class ScratchDir {
 public:
  ScratchDir() {
    std::string name = (std::filesystem::temp_directory_path() / "cvtest.XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp failed: " + name);
    path_ = name;
  }
  ~ScratchDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::filesystem::path& path() const { return path_; }

  // The full path of `name` in it; without a name, of the directory itself (no trailing "/").
  std::string operator()(std::string_view name = "") const {
    return name.empty() ? path_.string() : (path_ / name).string();
  }

 private:
  std::filesystem::path path_;
};

// Replaces the file's content; missing parent directories are made. Throws when it cannot be
// written.
inline void write_file(const std::filesystem::path& path, std::string_view content) {
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  out.close();
  if (!out) throw std::runtime_error("cannot write " + path.string());
}

// The whole content. Throws when the file cannot be read.
inline std::string read_file(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path.string());
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace corvane::test
