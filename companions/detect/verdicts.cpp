#include "companions/detect/verdicts.h"

#include <algorithm>
#include <utility>

#include "anomaly_database/anomalies.h"
#include "finding/anomaly.h"
#include "finding/words.h"
#include "platform/clock.h"

namespace corvane::detect {

namespace {

// Older rows of the history need no verdict: a historical gather goes back 91 days and cannot write
// over them. Storing all would make the first start five times as long.
constexpr std::int64_t kWithinReach = std::int64_t{120} * kDay;

}  // namespace

std::string reported_incident(Connection& database, const std::string& unique_key) {
  std::optional<AnomalyRow> row = find_anomaly_row(database, anomaly_id(unique_key));
  return row ? read_anomaly(std::move(*row)).incident : std::string();
}

KnownVerdicts::KnownVerdicts(Connection& anomaly_database, std::unique_ptr<VerdictDatabase> own)
    : anomaly_database_(anomaly_database), own_(std::move(own)) {
  if (own_ != nullptr) reported_ = own_->anomalous_keys();
}

Standing KnownVerdicts::standing_of(const HistoryRow& row) {
  const Standing as_it_is{&row.backup, row.cluster, false};
  const std::string& key = row.backup.unique_key;
  const bool is_reported = !reported_.empty() && reported_.contains(key);
  answer_.reset();
  if (!is_reported && row.mode == GatherMode::kLive) return as_it_is;
  answer_ = find(key);
  if (!answer_) return as_it_is;
  const bool was_reported = answer_->judged_as == JudgedAs::kAnomalous;
  if (row.cluster != kNoCluster) {
    return was_reported ? Standing{&answer_->backup, row.cluster, false} : as_it_is;
  }
  // An accepted row by its verdict, too: a historical gather knows neither all figures nor the
  // whole stream.
  const bool is_held = was_reported && !answer_->is_false_positive();
  return {&answer_->backup, answer_->cluster, is_held};
}

std::optional<KnownVerdict> KnownVerdicts::find(const std::string& unique_key) {
  return own_ == nullptr ? std::nullopt : own_->find(unique_key);
}

std::string KnownVerdicts::incident_of(const std::string& unique_key) {
  std::string incident = reported_incident(anomaly_database_, unique_key);
  if (!incident.empty()) return incident;
  const std::optional<KnownVerdict> verdict = find(unique_key);
  return verdict ? verdict->incident : std::string();
}

void Verdicts::begin_history(std::int64_t last_rowid) {
  judged_.clear();
  found_.clear();
  oldest_ = now() - kWithinReach;
  seen_ = own_->history_rowid();
  if (seen_ > last_rowid) seen_ = 0;  // it is another history
}

Standing Verdicts::note(const HistoryRow& row) {
  const Standing standing = standing_of(row);
  if (row.cluster != kNoCluster) {
    const bool is_reported = answer_ && answer_->judged_as == JudgedAs::kAnomalous;
    if (is_reported && row.cluster != answer_->cluster) {
      judged_.push_back(*answer_);
      judged_.back().cluster = row.cluster;
    }
  } else if (row.mode == GatherMode::kLive && row.rowid > seen_ && row.backup.time >= oldest_) {
    found_.push_back({row.backup, JudgedAs::kAccepted, kNoCluster, {}});
  }
  return standing;
}

void Verdicts::add_reported(const Backup& backup, ProcessedStatus status) {
  const std::string& key = backup.unique_key;
  if (reported_.contains(key)) return;
  if (status != ProcessedStatus::kAnomalous && !has_anomaly(anomaly_database_, anomaly_id(key))) {
    return;
  }
  add(backup, JudgedAs::kAnomalous, incident_of(key));
  const std::optional<HistoryRow> row = find_in_history(anomaly_database_, key);
  if (row) judged_.back().cluster = row->cluster;
}

const Backup& Verdicts::add(const Backup& backup, JudgedAs judged_as, const std::string& incident) {
  const std::string& key = backup.unique_key;
  const std::optional<KnownVerdict> former = reported_.contains(key) ? find(key) : std::nullopt;
  judged_.push_back({former ? former->backup : backup, judged_as,
                     former ? former->cluster : kNoCluster, incident});
  if (judged_as == JudgedAs::kAnomalous) reported_.insert(key);
  return judged_.back().backup;
}

void Verdicts::store(std::int64_t history_rowid) {
  if (judged_.empty() && found_.empty()) return;
  own_->store(judged_, found_, std::max(history_rowid, seen_));
  judged_.clear();
  found_.clear();
}

void Verdicts::set_cluster(const std::string& unique_key, int cluster, std::int64_t history_rowid) {
  own_->set_cluster(unique_key, cluster, history_rowid);
}

}  // namespace corvane::detect
