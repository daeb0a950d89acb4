// The ledger of what was gathered: cvanomalyheal's own database, beside the anomaly database. What
// it holds of gathers, holes and missing backups is read and written by Gathers, Holes and
// MissingBackups.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "companions/common/own_database.h"

namespace corvane::coverage {

struct Act {
  std::int64_t time = 0;
  std::string text;  // one sentence for people

  friend bool operator==(const Act&, const Act&) = default;
};

// Clocks of two machines differ, and a job is reported a moment after its end: a time that is later
// than now by no more than this is not in the future.
inline constexpr std::int64_t kClockSkew = 60;  // seconds

// Numbers of the ledger that others read. All are seconds since the epoch; 0: unknown, or none.
//
// Since when the backup that waits first for the detection has been first, as far as looks have
// seen it.
inline constexpr char kUnjudgedSince[] = "unjudged_since";
// Since when backups that were stored have not been compared with those that the server has.
inline constexpr char kUnauditedSince[] = "unaudited_since";
inline constexpr char kAuditReason[] = "audit_reason";  // a text: why the last attempt failed
// When a part of a hole was healed last, and when a part of them was compared.
inline constexpr char kHealedAt[] = "healed_at";
inline constexpr char kAuditedAt[] = "audited_at";
// The service's last purge: records before this time were deleted; when.
inline constexpr char kPurgedBefore[] = "purged_before";
inline constexpr char kPurgedAt[] = "purged_at";
// Minutes: how long the service waits between two gathers, as it said last. 0: unknown.
inline constexpr char kInterval[] = "interval";
// When the stored backups are compared with the server's next, after that has failed.
inline constexpr char kAuditNextTry[] = "audit_next_try";

// One connection, for one thread. Everything throws QueryError.
class Ledger : public OwnDatabase {
 public:
  // With `create` a missing database is created. Throws std::runtime_error for one of a later
  // version.
  explicit Ledger(const std::string& path, bool create = true);

  // Whether no page of the file is damaged.
  bool is_sound();

  // --- Looks ---

  // When the ledger was brought up to date. With a clock that was ahead, a look may be later than
  // the present.
  void add_look(std::int64_t now);
  std::int64_t last_look();  // 0: none
  // Forgets them, and returns the latest of those before; 0 if there is none.
  std::int64_t forget_looks_after(std::int64_t now);

  // --- Acts ---

  void note(std::int64_t now, std::string_view text);
  std::vector<Act> acts(int most);  // the latest first
  void forget_acts(std::int64_t before);
};

// Opens the ledger of this program. A damaged one is moved aside, with a line in the log, and a new
// one is made: what it knew is found again, but for what was lost, and for what was done.
Ledger open_ledger(const std::string& path);

}  // namespace corvane::coverage
