// Judges stored backups again, in memory, without changing the database. The detection's own
// database beside it is read if there is one that can be read: see Verdicts.
#pragma once

#include <jansson.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "companions/detect/judge.h"
#include "finding/finding.h"
#include "platform/c_handles.h"
#include "sqlite/connection.h"

namespace corvane::detect {

struct BacktestFinding {
  std::string unique_key;  // of the backup
  Finding finding;
};

struct Backtest {
  std::size_t judged = 0;
  std::size_t learning = 0;  // how many of them belong to streams that were still learning
  std::vector<BacktestFinding> findings;
};

// Judges the backups of the last `days` days before the newest stored one again, in their order.
// The older ones are the history. Throws QueryError.
Backtest backtest(Connection& database, const Settings& settings, int days);

// How one backup is judged against the backups before it.
struct Explanation {
  std::string unique_key;
  Finding finding;
  Outcome outcome = Outcome::kNormal;
  std::string verdict;     // "normal", "learning 12 of 30", ...
  std::string stream;      // the state of its stream at that time: "judged", "learning 12 of 30"
  double noise_share = 0;  // of the history
};

// Absent when there is no backup with this key. Throws QueryError.
std::optional<Explanation> explain(Connection& database, const Settings& settings,
                                   const std::string& unique_key);

// What the programs print with -json and --json.
JsonPtr to_json(const Backtest& backtest);
JsonPtr to_json(const Explanation& explanation);

// One line for each finding, then the totals.
std::string text_of(const Backtest& backtest);
// "12 backups judged again, 1 would have been reported, ..."
std::string totals_of(const Backtest& backtest);

}  // namespace corvane::detect
