// One backup as the detection sees it, and the stream that it belongs to.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "companions/common/stream_key.h"

namespace corvane::detect {

// -1 (any negative number) is unknown.
struct Figures {
  double files = -1;
  double size_kb = -1;
  double transferred_kb = -1;
  double ratio = -1;  // size to what was transferred
  double seconds = -1;
};

// A row of HIST_DATA or DATA_TO_PROCESS.
struct Backup {
  std::string unique_key;
  std::string backup_id;
  std::int64_t job_id = -1;
  std::int32_t time = 0;  // seconds since the epoch
  StreamKey stream;
  Figures figures;
};

// A backup as a stream's history keeps it: 24 bytes, since there are millions of them.
class Observation {
 public:
  Observation() = default;
  explicit Observation(const Backup& backup);

  std::int32_t time() const { return time_; }
  Figures figures() const;  // ratio and seconds to a tenth of a percent
  // Of the unique key: a row gathered again replaces its former self.
  std::uint32_t key_hash() const { return key_hash_; }
  bool is_same_row(const Observation& other) const {
    return time_ == other.time_ && key_hash_ == other.key_hash_;
  }
  // By time; equal times in an order that does not depend on how they were read.
  bool operator<(const Observation& other) const {
    return time_ != other.time_ ? time_ < other.time_ : key_hash_ < other.key_hash_;
  }

 private:
  std::int32_t time_ = 0;
  std::uint32_t key_hash_ = 0;
  float files_ = -1;
  float size_kb_ = -1;
  float transferred_kb_ = -1;
  std::uint16_t ratio_ = 0;  // packed logarithms
  std::uint16_t seconds_ = 0;
};

}  // namespace corvane::detect
