// Wrong answers on purpose, to see how a client behaves when its server misbehaves.
//
// While the fault file exists, its first matching line decides the answer to each request:
//   [PATH] ACTION [skip N] [count N]
//   status 500             this status and an error body (100 to 599)
//   garbage                200 and bytes that are not JSON
//   truncate               a complete answer whose JSON text ends half-way
//   cut                    an answer during which the connection breaks
//   hang 30                the right answer after 30 seconds
//   null-end-time 0        the right answer, but element 0 has endTime null
//   surrogate 0            the right answer, but the first clientName begins with half a surrogate
//   pair, nul 0                  ... with an escaped NUL, latin1 0               ... with a byte
//   that is no UTF-8
// PATH is the beginning of a request's path ("corvane/admin/jobs"). A line passes its first `skip`
// requests on to the lines below it, and then applies to `count` of them, counted since the file
// was written. Requests that are rejected for their certificate do not count.
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

enum class FaultAction {
  kStatus,
  kGarbage,
  kTruncate,
  kCut,
  kHang,
  kNullEndTime,
  kSurrogate,
  kNul,
  kLatin1
};

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

// Applies a fault to the reply. kHang and kCut do not change it; the transport implements them.
void apply_fault(const Fault& fault, WebReply& reply);

// The fault file. Thread-safe.
class FaultFile {
 public:
  explicit FaultFile(std::string path) : path_(std::move(path)) {}

  // The fault for a request of this path. Re-reads the file. Throws BadFaultFile if the file exists
  // but cannot be read.
  std::optional<Fault> next(std::string_view path);

 private:
  std::string path_;
  std::mutex mutex_;
  std::string seen_;  // the file's identity and content at the last request
  std::vector<Fault> faults_;
  std::vector<std::int64_t> hits_;  // for each fault, how many requests matched it
};

}  // namespace corvane::host
