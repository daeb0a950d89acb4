#include "companions/detect/judge.h"

#include <algorithm>
#include <cmath>

namespace corvane::detect {

namespace {

constexpr double kMostNoise = 1.0 / 3;
// The least share of the source that an incident touches or stores anew.
constexpr double kMaterialStored = 0.3;
constexpr double kMaterialTouchedFiles = 0.3;
constexpr double kMaterialTouchedSize = 0.5;
// A slow change: kSustainedRuns runs in a row, each of at least this share of the source, and of at
// least kSustainedFactor times what as many runs in a row came to before.
constexpr std::size_t kSustainedRuns = 3;
constexpr double kSustainedTouchedFiles = 0.045;
constexpr double kSustainedStored = 0.03;
constexpr double kSustainedFactor = 2;
// A change of the source's size is adopted when this many runs agree.
constexpr std::size_t kAdoptedWithRun = 3;
// This many of a stream's own records show whether another stream backs up the same data.
constexpr std::size_t kRecordsToAgree = 3;

double distance2(std::span<const double> a, std::span<const double> b) {
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += (a[i] - b[i]) * (a[i] - b[i]);
  return sum;
}

double ratio(double value, double before, double few) {
  return value < 0 || before < 0 ? -1 : (value + few) / (before + few);
}

Severity severity_of(const Verdict& verdict) {
  const Change& change = verdict.change;
  const double lost = change.files >= 0 ? 1 - change.files : change.touched_files;
  switch (verdict.causes.front().kind) {
    case CauseKind::kEncryption:
    case CauseKind::kSourceEmpty:
    case CauseKind::kPacked:
      return Severity::kCritical;
    case CauseKind::kMassDeletion:
      return lost > 0.5 ? Severity::kCritical : Severity::kMajor;
    case CauseKind::kRunawayGrowth:
      return Severity::kMajor;
    case CauseKind::kUnclear:
      break;
  }
  return Severity::kWarning;
}

}  // namespace

double Settings::effective_eps() const {
  return eps * std::exp2(-std::clamp(sensitivity, -100.0, 100.0) / 100);
}

Verdict Judge::judge(const Question& question, const Settings& settings) {
  question_ = &question;
  settings_ = &settings;
  frame_ = {question.incremental,
            question.incremental ? question.full_backups : std::span<const Observation>{}};
  Verdict verdict;
  verdict.observations = question.history.size();
  verdict.eps = settings.effective_eps();
  verdict.change = change_of();
  if (question.history.size() >= settings.stream.min_observations) {
    judge_by_history(verdict);
  } else if (!judge_by_full_backups(verdict)) {
    verdict.outcome = Outcome::kLearning;
  }
  if (verdict.outcome == Outcome::kAnomalous) {
    verdict.change.sustained = verdict.slow_change.has_value();
    verdict.causes = suspected_causes(verdict.change);
    verdict.severity = severity_of(verdict);
  }
  return verdict;
}

// For a full backup whose stream has too little history: another stream of the same source knows
// the usual files and size, provided that the two streams have agreed so far. False when there is
// no such stream.
bool Judge::judge_by_full_backups(Verdict& verdict) {
  const auto& full_backups = question_->full_backups;
  const auto& history = question_->history;
  if (question_->incremental || full_backups.size() < settings_->stream.min_observations ||
      history.size() < kRecordsToAgree) {
    return false;
  }
  scale_history(full_backups, frame_, settings_->stream.min_observations / 2, scaled_);
  for (const Figure feature : {kTransferred, kRatio, kDuration})
    scaled_.scales[feature].used = false;
  const auto away_from_full_backups = [&](const Observation& backup) {
    return deviations(raw_features(backup, full_backup_at(full_backups, backup.time()), frame_),
                      frame_, scaled_.scales);
  };
  const auto is_far = [&](const Deviations& away) {
    return std::hypot(away[kFiles], away[kSize]) > verdict.eps;
  };
  for (const Observation& own : history.last(kRecordsToAgree)) {
    if (is_far(away_from_full_backups(own))) return false;
  }
  const Observation* before = full_backup_at(full_backups, question_->record.time());
  const Raw raw = raw_features(question_->record, before, frame_);
  const Deviations away = deviations(raw, frame_, scaled_.scales);
  view_figures(raw, before, away, verdict);
  verdict.by_other_stream = true;
  bool accepted = !is_far(away);
  for (const Observation& other : question_->by_people) {
    const Deviations there = away_from_full_backups(other);
    accepted = accepted || distance2(there, away) <= verdict.eps * verdict.eps;
  }
  if (accepted) return true;
  const bool adopted = is_lasting_change(full_backups, raw, away, verdict.eps);
  verdict.outcome = adopted ? Outcome::kAdopted : Outcome::kAnomalous;
  return true;
}

void Judge::judge_by_history(Verdict& verdict) {
  scale_history(question_->history, frame_, settings_->stream.min_observations / 2, scaled_);
  if (scaled_.dimensions == 0) return;
  const Observation* before = question_->incremental
                                  ? nullptr
                                  : full_backup_at(question_->history, question_->record.time());
  const Raw raw = raw_features(question_->record, before, frame_);
  const Deviations away = deviations(raw, frame_, scaled_.scales);
  view_figures(raw, before, away, verdict);
  point_.clear();
  append_point(away, scaled_.scales, point_);
  const bool noise = is_noise(point_, verdict.noise_share);
  const bool acute = noise && is_material(raw, away, verdict.eps);
  if (!acute) verdict.slow_change = slow_change();
  if ((!acute && !verdict.slow_change) || people_accepted(away, verdict.eps)) return;
  if (verdict.noise_share > kMostNoise) {
    verdict.outcome = Outcome::kInconclusive;
  } else if (acute && is_lasting_change(question_->history, raw, away, verdict.eps)) {
    verdict.outcome = Outcome::kAdopted;
  } else {
    verdict.outcome = Outcome::kAnomalous;
  }
}

// Farther than eps from every core point of the history's clusters.
bool Judge::is_noise(std::span<const double> point, double& noise_share) {
  const double eps = settings_->effective_eps();
  dbscan_.run(scaled_.points, scaled_.dimensions, eps, settings_->min_samples);
  const std::size_t count = scaled_.raw.size();
  bool noise = true;
  std::size_t noisy = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (dbscan_.labels()[i] == kNoise) ++noisy;
    if (!noise || dbscan_.core()[i] == 0) continue;
    const std::span row(&scaled_.points[i * scaled_.dimensions], scaled_.dimensions);
    noise = distance2(row, point) > eps * eps;
  }
  noise_share = static_cast<double>(noisy) / static_cast<double>(count);
  return noise;
}

// Many small deviations can add up to noise; an incident needs one that matters by itself.
bool Judge::is_material(const Raw& raw, const Deviations& away, double eps) const {
  if (!question_->incremental) {
    if (std::abs(away[kFiles]) >= eps || std::abs(away[kSize]) >= eps) return true;
    return (std::isnan(raw[kTransferred]) || stores_much(raw)) &&
           (away[kTransferred] >= eps || away[kRatio] >= eps);
  }
  if (question_->same_night_is_normal) return false;
  if (frame_.full_backups.empty()) return away[kFiles] >= eps || away[kSize] >= eps;
  return raw[kFiles] >= kMaterialTouchedFiles || raw[kSize] >= kMaterialTouchedSize;
}

// The share of the source that a run found changed; 0 when unknown.
double Judge::effort(const Observation& backup) const {
  const Raw raw = raw_features(backup, nullptr, frame_);
  const double share = question_->incremental ? raw[kFiles] : raw[kTransferred];
  return std::isnan(share) ? 0 : share;
}

std::optional<SlowChange> Judge::slow_change() {
  if (question_->incremental && frame_.full_backups.empty()) return std::nullopt;
  // A history that rarely knows the figure cannot tell what is usual.
  if (!scaled_.scales[question_->incremental ? kFiles : kTransferred].used) return std::nullopt;
  const auto& history = question_->history;
  if (history.size() < kSustainedRuns) return std::nullopt;
  // The runs just before the record, anomalous ones included.
  std::vector<Observation> runs(history.end() - static_cast<std::ptrdiff_t>(kSustainedRuns),
                                history.end());
  runs.insert(runs.end(), question_->held.begin(), question_->held.end());
  std::sort(runs.begin(), runs.end());
  double least = effort(question_->record);
  for (std::size_t i = 1; i < kSustainedRuns; ++i) {
    const double before = effort(runs[runs.size() - i]);
    if (before >= kMaterialStored) return std::nullopt;  // an incident of its own
    least = std::min(least, before);
  }
  if (least < (question_->incremental ? kSustainedTouchedFiles : kSustainedStored))
    return std::nullopt;
  efforts_.clear();
  for (const Observation& backup : history) efforts_.push_back(effort(backup));
  double most_sustained = 0;
  for (std::size_t i = 0; i + kSustainedRuns <= efforts_.size(); ++i) {
    const auto first = efforts_.begin() + static_cast<std::ptrdiff_t>(i);
    most_sustained = std::max(most_sustained, *std::min_element(first, first + kSustainedRuns));
  }
  if (least < kSustainedFactor * most_sustained) return std::nullopt;
  return SlowChange{.runs = kSustainedRuns,
                    .of_files = question_->incremental,
                    .share = least,
                    .share_before = most_sustained};
}

bool Judge::people_accepted(const Deviations& away, double eps) const {
  return std::any_of(
      question_->by_people.begin(), question_->by_people.end(),
      [&](const Observation& other) { return distance2(deviations_of(other), away) <= eps * eps; });
}

// A source that stays as it is now has changed for good. Only its files and size are adopted:
// content that is new to the store run after run is what an ongoing encryption looks like.
bool Judge::is_lasting_change(std::span<const Observation> accepted, const Raw& raw,
                              const Deviations& away, double eps) const {
  if (question_->incremental || stores_much(raw)) return false;
  std::size_t agreeing = 1;
  for (const Observation& run : question_->held) {
    if (run.time() < accepted.back().time()) continue;
    const Raw there_raw = raw_features(run, full_backup_at(accepted, run.time()), frame_);
    const Deviations there = deviations(there_raw, frame_, scaled_.scales);
    if (std::hypot(there[kFiles] - away[kFiles], there[kSize] - away[kSize]) <= eps) ++agreeing;
  }
  return agreeing >= kAdoptedWithRun;
}

bool Judge::stores_much(const Raw& raw) const { return raw[kTransferred] >= kMaterialStored; }

Judge::Deviations Judge::deviations_of(const Observation& backup) const {
  const Observation* before =
      question_->incremental ? nullptr : full_backup_at(question_->history, backup.time());
  return deviations(raw_features(backup, before, frame_), frame_, scaled_.scales);
}

void Judge::view_figures(const Raw& raw, const Observation* before, const Deviations& away,
                         Verdict& verdict) const {
  const Figures own = question_->record.figures();
  const std::array<double, kFigures> values{own.files, own.size_kb, own.transferred_kb, own.ratio,
                                            own.seconds};
  for (std::size_t i = 0; i < kFigures; ++i) {
    FigureView& view = verdict.figures[i];
    const Figure feature{i};
    const Scale& scale = scaled_.scales[i];
    view.known = values[i] >= 0;
    view.has_usual = scale.used && !std::isnan(raw[i]);
    view.value = values[i];
    view.deviation = away[i];
    if (!view.has_usual) continue;
    const double reach = verdict.eps * scale.spread;
    view.usual = natural(feature, scale.centre, question_->record, before, frame_);
    view.low = natural(feature, scale.centre - reach, question_->record, before, frame_);
    view.high = natural(feature, scale.centre + reach, question_->record, before, frame_);
    if (view.low > view.high) std::swap(view.low, view.high);
  }
}

// Looks at the full backup: the record itself, or that of the same night as an incremental.
Change Judge::change_of() const {
  Change change;
  const Question& q = *question_;
  const Observation* now = q.incremental ? q.same_night : &q.record;
  const auto& copies = q.incremental || q.history.size() < settings_->stream.min_observations
                           ? q.full_backups
                           : q.history;
  if (now != nullptr && !copies.empty()) {
    const Figures after = now->figures();
    const Figures before = full_backup_at(copies, now->time())->figures();
    change.files = ratio(after.files, before.files, 1);
    change.size = ratio(after.size_kb, before.size_kb, 1);
    if (!q.incremental) change.stored = ratio(after.transferred_kb, after.size_kb, 1);
  }
  if (q.incremental && !q.full_backups.empty()) {
    const Figures all = full_backup_at(q.full_backups, q.record.time())->figures();
    const Figures own = q.record.figures();
    if (own.files >= 0 && all.files >= 0) change.touched_files = own.files / (all.files + 1);
    if (own.size_kb >= 0 && all.size_kb >= 0) change.touched_size = own.size_kb / (all.size_kb + 1);
  }
  return change;
}

}  // namespace corvane::detect
