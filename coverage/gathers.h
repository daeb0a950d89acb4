// The gathers of the service that the ledger knows, and how far the service's log has been read.
#pragma once

#include <cstdint>
#include <string>

#include "coverage/gather_reader.h"
#include "coverage/ledger.h"
#include "coverage/log_follower.h"

namespace corvane::coverage {

// What people have to know of the live gathers.
struct GatherHealth {
  std::int64_t failed_in_a_row = 0;  // that did not complete, up to the last
  std::int64_t first_failed = 0;     // when the first of them began
  std::string reason;                // of the last of them
  std::int64_t last_complete = 0;    // when the last complete one ended; 0: none
  std::int64_t open_since = 0;       // when the one under way began; 0: none is

  friend bool operator==(const GatherHealth&, const GatherHealth&) = default;
};

// Of the live gathers that ended since a given time.
struct GatherCounts {
  std::int64_t from = 0;  // when the oldest one that the ledger knows began; 0: there is none
  std::int64_t gathers = 0;
  std::int64_t failed = 0;         // did not complete
  std::int64_t last_failed = 0;    // when the last of them ended; 0: none
  std::int64_t last_end = 0;       // of the last gather at all; 0: none is known
  std::int64_t last_seconds = -1;  // that it took; -1: unknown

  friend bool operator==(const GatherCounts&, const GatherCounts&) = default;
};

// Everything throws QueryError.
class Gathers {
 public:
  explicit Gathers(Ledger& ledger) : ledger_(ledger) {}

  LogPosition log_position();
  ReaderState reader_state();
  void set_log_position(const LogPosition& position, const ReaderState& state);

  void add(const Gather& gather);
  GatherHealth health();
  GatherCounts counts(std::int64_t since);
  // When the last gather ended, which may be a slice of the history; 0: none is known.
  std::int64_t last_end();
  // The end of the latest range that was asked for, or the time of the latest gather that had none.
  std::int64_t asked_until();

  // Forgets those that ended before a time, or asked for times after another one: with a clock that
  // was ahead.
  void forget(std::int64_t before);
  void forget_after(std::int64_t now);

 private:
  Ledger& ledger_;
};

}  // namespace corvane::coverage
