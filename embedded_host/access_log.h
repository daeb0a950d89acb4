// One line for every request that was answered:
//   2026-01-31T04:05:06.000Z 127.0.0.1:40312 host "GET /corvane/admin/jobs?..." 200 51342 3ms
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "platform/descriptor.h"

namespace corvane::host {

struct AccessRecord {
  std::string client;  // address and port
  std::string_view certificate;
  std::string method;
  std::string target;
  int status = 0;
  std::size_t bytes = 0;  // of the body
  std::chrono::milliseconds duration{};
};

// Thread-safe: a line is one write to a file that is open for appending.
class AccessLog {
 public:
  // With an empty path nothing is written. Throws std::system_error if the file cannot be opened.
  explicit AccessLog(const std::string& path);

  // A failed write is not reported.
  void write(const AccessRecord& record);

 private:
  Descriptor file_;
};

}  // namespace corvane::host
