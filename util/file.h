// Whole-file helpers. Only ReadAllText reports a failure; nothing is logged.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

// what() is "File not found '" + path + "'."
class file_not_found : public std::exception {
 public:
  explicit file_not_found(const std::string& path);
  const char* what() const noexcept override;

 private:
  std::string path_;
  std::string message_;
};

class File {
 public:
  // True if the file can be opened for reading; false if it exists but cannot be read.
  static bool Exists(const std::string& path);

  static void Delete(const std::string& path);

  // Replaces the content. A failure is not reported.
  static void WriteAllText(const std::string& path, const std::string& text);

  // The content, byte for byte, or as much of it as can be read. Throws file_not_found.
  static std::string ReadAllText(const std::string& path);

  // In whole kibibytes, rounded down; 0 if the file does not exist.
  static std::int64_t Size(const std::string& path);
};
