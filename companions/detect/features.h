// The features by which the backups of a stream are compared, in units of the stream's spread.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <vector>

#include "companions/detect/observation.h"
#include "finding/figure.h"

namespace corvane::detect {

// What a backup is measured against besides its own stream.
struct Frame {
  bool incremental = false;
  // Full backups of the same source, by time; empty when none is known.
  std::span<const Observation> full_backups;
};

// A feature before scaling. Unknown ones are NaN.
//
// Full backup: files and size in octaves above `before` (the backup accepted last, so that slow
// growth raises no alarm); transferred as a share of the size.
// Incremental: files and size as shares of the last full backup, or in octaves when none is known;
// transferred in octaves.
// Both: 1 / deduplication ratio; duration in octaves.
using Raw = std::array<double, kFigures>;
Raw raw_features(const Observation& backup, const Observation* before, const Frame& frame);

// The newest one that is not after `time`, else the first one; null when there are none.
const Observation* full_backup_at(std::span<const Observation> full_backups, std::int32_t time);

struct Scale {
  bool used = false;
  double centre = 0;
  double spread = 1;
};

// A history in units of its spread. Unknown values, and deviations to the harmless side, count as
// usual.
struct ScaledHistory {
  std::vector<Raw> raw;
  std::array<Scale, kFigures> scales;
  std::size_t dimensions = 0;  // used features
  std::vector<double> points;  // rows of `dimensions` numbers, as raw
};

// A feature is used when at least `enough` backups of the history know it. Refills `scaled`.
void scale_history(std::span<const Observation> history, const Frame& frame, std::size_t enough,
                   ScaledHistory& scaled);

// Deviations of one backup in units of the spread; 0 for a feature that is not used or not known.
std::array<double, kFigures> deviations(const Raw& raw, const Frame& frame,
                                        const std::array<Scale, kFigures>& scales);

// Appends the deviations of the used features to `point`.
void append_point(const std::array<double, kFigures>& deviations,
                  const std::array<Scale, kFigures>& scales, std::vector<double>& point);

// The feature's value `raw` in its own unit (files, KB, KB, ratio, seconds), for people. The ratio
// of a backup that stores nothing new is infinite.
double natural(Figure feature, double raw, const Observation& backup, const Observation* before,
               const Frame& frame);

}  // namespace corvane::detect
