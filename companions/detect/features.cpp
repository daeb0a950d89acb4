#include "companions/detect/features.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace corvane::detect {

namespace {

constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
// Added to both sides of a ratio, so that a few files or KB in a small backup are not octaves.
constexpr double kFewFiles = 8;
constexpr double kFewKb = 64;
// The ratio of a smaller backup means nothing.
constexpr double kLeastKbForRatio = 64;
constexpr double kLargestInverseRatio = 16;
constexpr double kMadToSigma = 1.4826;
constexpr double kFarthest = 1000;  // spreads

constexpr double kLeastSpreadOfShare = 0.1;
// Without a least spread, a stream that never changes would raise an alarm for one more file.
constexpr std::array<double, kFigures> kLeastSpread{0.2, 0.2, 1, kLeastSpreadOfShare, 2};

double median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  if (values.size() % 2 == 1) return *middle;
  return (*middle + *std::max_element(values.begin(), middle)) / 2;
}

bool is_two_sided(Figure feature, bool incremental) {
  return !incremental && (feature == kFiles || feature == kSize);
}

bool is_share(Figure feature, const Frame& frame) {
  if (!frame.incremental) return feature == kTransferred;
  return !frame.full_backups.empty() && (feature == kFiles || feature == kSize);
}

double octaves_above(double value, double before, double few) {
  return value < 0 || before < 0 ? kUnknown : std::log2((value + few) / (before + few));
}

double share_of(double value, double all, double few) {
  return value < 0 || all < 0 ? kUnknown : value / (all + few);
}

double octaves(double value) { return value < 0 ? kUnknown : std::log2(value + 1); }

Scale scale_of(const std::vector<Raw>& raw, Figure feature, const Frame& frame,
               std::size_t enough) {
  static thread_local std::vector<double> values;
  values.clear();
  for (const Raw& row : raw) {
    if (!std::isnan(row[feature])) values.push_back(row[feature]);
  }
  Scale scale;
  scale.used = values.size() >= enough && !values.empty();
  if (!scale.used) return scale;
  scale.centre = median(values);
  // Most runs had nothing to do: the others tell how much is a lot.
  if (frame.incremental && scale.centre == 0) {
    std::erase(values, 0.0);
    if (values.empty()) values.push_back(0);
    scale.centre = median(values);
  }
  for (double& value : values) value = std::abs(value - scale.centre);
  const double least = is_share(feature, frame) ? kLeastSpreadOfShare : kLeastSpread[feature];
  scale.spread = std::max(least, kMadToSigma * median(values));
  return scale;
}

}  // namespace

const Observation* full_backup_at(std::span<const Observation> full_backups, std::int32_t time) {
  if (full_backups.empty()) return nullptr;
  const auto after = std::upper_bound(
      full_backups.begin(), full_backups.end(), time,
      [](std::int32_t value, const Observation& other) { return value < other.time(); });
  return after == full_backups.begin() ? &full_backups.front() : &*(after - 1);
}

Raw raw_features(const Observation& backup, const Observation* before, const Frame& frame) {
  const Figures own = backup.figures();
  Raw raw;
  raw.fill(kUnknown);
  if (!frame.incremental) {
    if (before != nullptr) {
      const Figures last = before->figures();
      raw[kFiles] = octaves_above(own.files, last.files, kFewFiles);
      raw[kSize] = octaves_above(own.size_kb, last.size_kb, kFewKb);
    }
    if (own.transferred_kb >= 0 && own.size_kb >= 0) {
      raw[kTransferred] = own.transferred_kb / (own.size_kb + kFewKb);
    }
  } else if (const Observation* full = full_backup_at(frame.full_backups, backup.time())) {
    const Figures all = full->figures();
    raw[kFiles] = share_of(own.files, all.files, kFewFiles);
    raw[kSize] = share_of(own.size_kb, all.size_kb, kFewKb);
    raw[kTransferred] = octaves(own.transferred_kb);
  } else {
    raw[kFiles] = octaves(own.files);
    raw[kSize] = octaves(own.size_kb);
    raw[kTransferred] = octaves(own.transferred_kb);
  }
  const bool has_ratio = own.ratio > 0 && own.transferred_kb != 0 &&
                         !(own.size_kb >= 0 && own.size_kb < kLeastKbForRatio);
  if (has_ratio) raw[kRatio] = std::min(1 / own.ratio, kLargestInverseRatio);
  raw[kDuration] = octaves(own.seconds);
  return raw;
}

void scale_history(std::span<const Observation> history, const Frame& frame, std::size_t enough,
                   ScaledHistory& scaled) {
  scaled.raw.clear();
  for (std::size_t i = 0; i < history.size(); ++i) {
    scaled.raw.push_back(raw_features(history[i], i == 0 ? nullptr : &history[i - 1], frame));
  }
  scaled.dimensions = 0;
  for (std::size_t feature = 0; feature < kFigures; ++feature) {
    scaled.scales[feature] = scale_of(scaled.raw, Figure{feature}, frame, enough);
    if (scaled.scales[feature].used) ++scaled.dimensions;
  }
  scaled.points.clear();
  for (const Raw& raw : scaled.raw) {
    append_point(deviations(raw, frame, scaled.scales), scaled.scales, scaled.points);
  }
}

std::array<double, kFigures> deviations(const Raw& raw, const Frame& frame,
                                        const std::array<Scale, kFigures>& scales) {
  std::array<double, kFigures> result{};
  for (std::size_t feature = 0; feature < kFigures; ++feature) {
    if (!scales[feature].used || std::isnan(raw[feature])) continue;
    const double away = (raw[feature] - scales[feature].centre) / scales[feature].spread;
    const double least = is_two_sided(Figure{feature}, frame.incremental) ? -kFarthest : 0;
    result[feature] = std::clamp(away, least, kFarthest);
  }
  return result;
}

void append_point(const std::array<double, kFigures>& deviations,
                  const std::array<Scale, kFigures>& scales, std::vector<double>& point) {
  for (std::size_t feature = 0; feature < kFigures; ++feature) {
    if (scales[feature].used) point.push_back(deviations[feature]);
  }
}

double natural(Figure feature, double raw, const Observation& backup, const Observation* before,
               const Frame& frame) {
  if (feature == kRatio) return raw > 0 ? 1 / raw : std::numeric_limits<double>::infinity();
  const Figures own = backup.figures();
  if (feature == kTransferred && !frame.incremental) {
    return std::max(0.0, raw * (own.size_kb + kFewKb));
  }
  if (feature == kTransferred || feature == kDuration) return std::max(0.0, std::exp2(raw) - 1);
  const double few = feature == kFiles ? kFewFiles : kFewKb;
  if (!frame.incremental) {
    const Figures last = before == nullptr ? own : before->figures();
    return std::max(0.0,
                    std::exp2(raw) * ((feature == kFiles ? last.files : last.size_kb) + few) - few);
  }
  const Observation* full = full_backup_at(frame.full_backups, backup.time());
  if (full == nullptr) return std::max(0.0, std::exp2(raw) - 1);
  const Figures all = full->figures();
  return std::max(0.0, raw * ((feature == kFiles ? all.files : all.size_kb) + few));
}

}  // namespace corvane::detect
