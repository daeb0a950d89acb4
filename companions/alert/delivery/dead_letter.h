// The file of the messages that were given up, for people and programs: one JSON object a line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "companions/alert/delivery/outbox.h"

namespace corvane::alert {

// Made with mode 0600; while it lives others wait for it. Everything throws std::runtime_error.
class DeadLetterFile {
 public:
  explicit DeadLetterFile(const std::string& path);
  ~DeadLetterFile();
  DeadLetterFile(const DeadLetterFile&) = delete;
  DeadLetterFile& operator=(const DeadLetterFile&) = delete;

  // All of them, on disk when it returns; when it throws the file is as it was.
  void append(const std::vector<Delivery>& deliveries, std::int64_t now) const;
  void clear() const;

 private:
  [[noreturn]] void fail() const;

  std::string path_;
  int descriptor_;
};

}  // namespace corvane::alert
