// Time whose backups were gathered, and time whose backups were not. Ranges are of the ends of
// backups.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "coverage/gather_reader.h"
#include "coverage/ledger.h"
#include "coverage/time_ranges.h"

namespace corvane::coverage {

struct Hole {
  TimeRange range;
  std::int64_t found = 0;     // when
  std::int64_t attempts = 0;  // at its beginning, since something of it was healed last
  std::int64_t next_try = 0;
  std::string reason{};  // of the last attempt

  friend bool operator==(const Hole&, const Hole&) = default;
};

// Everything throws QueryError.
class Holes {
 public:
  explicit Holes(Ledger& ledger) : ledger_(ledger) {}

  // --- What was gathered ---

  TimeRanges covered() { return spans("covered"); }
  // Covers the range of a gather, or the contrary. A gather of the history that is repeated covers
  // nothing since the first live gather, since what it brings is not judged; nor does it uncover
  // anything.
  void add(const Gather& gather);
  // Since when backups are gathered live; kEver: they are not, as far as is known.
  std::int64_t first_live();
  // What is covered is not lost.
  void cover(TimeRange range);
  // The same after an attempt that succeeded.
  void heal(TimeRange range);
  // What was thought to be covered is not.
  void uncover(TimeRange range);

  // --- What was not ---

  // Finds the holes in a range; those outside are forgotten. Returns the open ones, oldest first.
  // Inside a transaction, so that nobody sees the ledger without them.
  std::vector<Hole> find(TimeRange range, std::int64_t now);
  std::vector<Hole> all();
  // An attempt at the beginning of a hole failed.
  void postpone(const Hole& hole, std::int64_t next_try, std::string_view reason);
  // The same, but the attempt does not count.
  void wait(const Hole& hole, std::int64_t next_try, std::string_view reason);
  // Attempts begin anew, nothing waits for the next one, and nothing was found after `now`.
  void make_due(std::int64_t now);
  // Nothing more is tried for the range; what is left of its hole begins anew.
  void lose(TimeRange range, std::string_view reason, std::int64_t now);
  // The range is not lost.
  void regain(TimeRange range);
  std::vector<TimeRange> lost();

  // --- What the server was asked ---

  // Nothing was missing, or it is noted as missing: so nothing of it is lost any more.
  void audit(TimeRange range);
  // So much was missing that the range is gathered as a whole, as far as that was not done before.
  void gather_whole(TimeRange range);
  TimeRanges gathered_whole() { return spans("gathered_whole"); }
  // Nothing counts as audited any more.
  void audit_again();
  // What is covered or lost and was not audited yet.
  std::vector<TimeRange> to_audit();

  void forget(std::int64_t before);

 private:
  TimeRanges spans(const char* kind);
  void add_span(const char* kind, TimeRange range);
  void remove_span(const char* kind, TimeRange range);

  Ledger& ledger_;
};

}  // namespace corvane::coverage
