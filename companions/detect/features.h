// What a stream's backups are compared by, in units of the stream's own spread.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <vector>

#include "companions/detect/observation.h"
#include "finding/figure.h"

namespace corvane::detect {

// What a stream's backup is measured against besides its own kind.
struct Frame {
  bool incremental = false;
  // The whole copies of the same source, by time; empty: none known.
  std::span<const Observation> whole;
};

// A feature before scaling. Unknown ones are NaN.
//
// Whole copy: files and size as octaves above `before` (the backup accepted last, so that slow
// growth is no alarm), transferred as its share of the size.
// Incremental: files and size as shares of the last whole copy, or octaves where none is known;
// transferred in octaves.
// Both: one by the deduplication ratio; duration in octaves.
using Raw = std::array<double, kFigures>;
Raw raw_features(const Observation& backup, const Observation* before, const Frame& frame);

// The newest of `whole` that is not after `time`, or the first one; null when there is none.
const Observation* whole_copy_at(std::span<const Observation> whole, std::int32_t time);

struct Scale {
  bool used = false;
  double centre = 0;
  double spread = 1;
};

// A history in units of its spread; what is unknown, and what deviates to the harmless side, counts
// as usual.
struct ScaledHistory {
  std::vector<Raw> raw;
  std::array<Scale, kFigures> scales;
  std::size_t dimensions = 0;  // used features
  std::vector<double> points;  // rows of `dimensions` numbers, as raw
};

// A feature counts when at least `enough` of the history knows it. Refills `scaled`.
void scale_history(std::span<const Observation> history, const Frame& frame, std::size_t enough,
                   ScaledHistory& scaled);

// Deviations of one backup in units of the spread, 0 for what is not used or unknown.
std::array<double, kFigures> deviations(const Raw& raw, const Frame& frame,
                                        const std::array<Scale, kFigures>& scales);

// The used ones of `deviations`, appended to `point`.
void append_point(const std::array<double, kFigures>& deviations,
                  const std::array<Scale, kFigures>& scales, std::vector<double>& point);

// What the feature would be in its own unit (files, KB, KB, ratio, seconds) at `raw`, for people.
// The ratio of a backup of which nothing is new is infinite.
double natural(Figure feature, double raw, const Observation& backup, const Observation* before,
               const Frame& frame);

}  // namespace corvane::detect
