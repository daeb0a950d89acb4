// Answering wrongly on purpose, so that a client can be watched while its server misbehaves.
//
// While the fault file exists, each request takes the first of its lines that fits:
//   [PATH] ACTION [skip N] [count N]
//   status 500             this status and an error body (100 to 599)
//   garbage                200 and bytes that are no JSON
//   truncate               a whole answer whose JSON text ends half-way
//   cut                    an answer whose connection breaks half-way
//   hang 30                the right answer, after so many seconds
//   null-end-time 0        the right answer, with the endTime of this element null (counted from 0)
// PATH is the beginning of a request's path ("corvane/admin/jobs"). A line lets its first `skip`
// requests pass to the lines below it, and then holds for `count` of them, counted from when the
// file was written. Requests that are turned away for their certificate do not count.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "embedded_host/web_service.h"

namespace corvane::host {

enum class FaultAction { kStatus, kGarbage, kTruncate, kCut, kHang, kNullEndTime };

struct Fault {
  std::string path;
  FaultAction action = FaultAction::kStatus;
  std::int64_t argument = 0;
  std::int64_t skip = 0;
  std::optional<std::int64_t> count;
};

class BadFaultFile : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws BadFaultFile with the line's number and a reason.
std::vector<Fault> parse_faults(const std::string& text);

// What the reply becomes by a fault. kHang and kCut leave it alone; they are the transport's.
void apply_fault(const Fault& fault, WebReply& reply);

// The fault file. Thread-safe.
class FaultFile {
 public:
  explicit FaultFile(std::string path) : path_(std::move(path)) {}

  // The fault for a request of this path. Reads the file anew. Throws
  // BadFaultFile when it is there and cannot be read.
  std::optional<Fault> next(std::string_view path);

 private:
  std::string path_;
  std::mutex mutex_;
  std::string seen_;  // the file's identity and content, as of the last request
  std::vector<Fault> faults_;
  std::vector<std::int64_t> hits_;  // for each fault, how many requests it fitted
};

}  // namespace corvane::host
