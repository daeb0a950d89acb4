// What may have happened to the source of an anomalous backup.
#pragma once

#include <vector>

#include "finding/cause.h"

namespace corvane::detect {

// How a source changed, as ratios to what was there before. Negative: unknown.
struct Change {
  double files = -1;          // of the full backup
  double size = -1;           // of the full backup
  double stored = -1;         // share of the full backup that was new to the store
  double touched_files = -1;  // of an incremental, as a share of the full backup's files
  double touched_size = -1;   // the same for the size
  bool sustained = false;     // several runs in a row
};

// Ranked, the likeliest first; never empty.
std::vector<Cause> suspected_causes(const Change& change);

}  // namespace corvane::detect
