#include "util/file.h"

#include <unistd.h>

#include <fstream>
#include <sstream>

file_not_found::file_not_found(const std::string& path)
    : path_(path), message_("File not found '" + path + "'.") {}

const char* file_not_found::what() const noexcept { return message_.c_str(); }

bool File::Exists(const std::string& path) { return std::ifstream(path).is_open(); }

void File::Delete(const std::string& path) {
  if (Exists(path)) unlink(path.c_str());
}

void File::WriteAllText(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::trunc | std::ios::binary);
  file << text;
}

std::string File::ReadAllText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file.is_open()) throw file_not_found(path);
  std::ostringstream content;
  content << file.rdbuf();
  return std::move(content).str();
}

std::int64_t File::Size(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file.is_open()) return 0;
  const std::streampos begin = file.tellg();
  file.seekg(0, std::ios::end);
  return (file.tellg() - begin) / 1024;
}
