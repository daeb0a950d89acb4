// The file of dead letters, for people and programs: one JSON object on each line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "companions/alert/delivery/outbox.h"
#include "platform/descriptor.h"

namespace corvane::alert {

// Created with mode 0600. Locked as long as the object lives: others wait. Everything throws
// std::runtime_error.
class DeadLetterFile {
 public:
  explicit DeadLetterFile(const std::string& path);

  // All are on disk when it returns. When it throws, the file is unchanged.
  void append(const std::vector<Delivery>& deliveries, std::int64_t now) const;
  void clear() const;

 private:
  [[noreturn]] void fail() const;

  std::string path_;
  Descriptor file_;
};

}  // namespace corvane::alert
