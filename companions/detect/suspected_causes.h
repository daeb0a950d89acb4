// What may have happened to the source of an anomalous backup.
#pragma once

#include <vector>

#include "finding/cause.h"

namespace corvane::detect {

// How a source changed; ratios to what was there before. Negative: unknown.
struct Change {
  double files = -1;          // of the whole copy
  double size = -1;           // of the whole copy
  double stored = -1;         // part of the whole copy that was new to the store
  double touched_files = -1;  // of an incremental, as a share of the whole copy's files
  double touched_size = -1;   // the same of its size
  bool sustained = false;     // several runs in a row
};

// Ranked, the likeliest first; never empty.
std::vector<Cause> suspected_causes(const Change& change);

}  // namespace corvane::detect
