// A backup as a stream's history keeps it.
#pragma once

#include <cstdint>

#include "anomaly_database/backup.h"

namespace corvane::detect {

// 24 bytes, since there are millions of them.
class Observation {
 public:
  Observation() = default;
  explicit Observation(const Backup& backup);

  std::int32_t time() const { return time_; }
  Figures figures() const;  // ratio and seconds to a tenth of a percent
  // Of the unique key: a record that is gathered again replaces the former one.
  std::uint32_t key_hash() const { return key_hash_; }
  bool is_same_row(const Observation& other) const {
    return time_ == other.time_ && key_hash_ == other.key_hash_;
  }
  // By time, then by key, so that the order of reading does not matter.
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
