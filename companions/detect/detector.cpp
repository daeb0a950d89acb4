#include "companions/detect/detector.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <tuple>
#include <utility>

#include "anomaly_database/anomalies.h"
#include "anomaly_database/anomaly_database.h"
#include "anomaly_database/model_params.h"
#include "companions/detect/finding_of.h"
#include "finding/anomaly.h"
#include "finding/finding_json.h"
#include "finding/words.h"
#include "platform/clock.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"
#include "util/json.h"

namespace corvane::detect {

namespace {

// A few milliseconds of work, so that the service never waits long for its turn to write.
constexpr std::size_t kRowsPerTransaction = 64;
// Between two transactions of the detection's own database.
constexpr std::size_t kRowsPerPortion = 1024;

// To ask for a stop takes longer than to read a row.
constexpr std::size_t kRowsPerQuestion = 4096;

}  // namespace

bool judged_before(const Backup& a, const Backup& b) {
  const bool a_part = a.stream.is_incremental();
  const bool b_part = b.stream.is_incremental();
  return std::tie(a.time, a_part, a.unique_key) < std::tie(b.time, b_part, b.unique_key);
}

Detector::Detector(const std::string& database, const Settings& settings,
                   std::function<bool()> stop)
    : database_(open_for_companion(database)),
      verdict_path_(verdict_database_path(database_)),
      verdicts_(database_, open_verdicts(verdict_path_)),
      model_(settings, [this](const std::string& key) { return verdicts_.incident_of(key); }),
      stop_(std::move(stop)) {}

bool Detector::has_news() {
  const std::int64_t version = database_.data_version();
  return std::exchange(seen_version_, version) != version || !loaded_;
}

PassCounts Detector::pass() {
  PassCounts counts;
  if (!loaded_) load();
  // Rowids only grow: when the last one is lower than before, the table was emptied.
  if (last_history_rowid(database_) < last_history_ || last_rowid_to_process(database_) < last_row_)
    start_over();
  // First what was reported, so that the history is not read without it.
  read_new_rows();
  read_new_history();
  if (stop_()) {
    loaded_ = false;  // possibly read in part only
    return counts;
  }
  model_.settle();
  loaded_ = true;
  follow_feedback();
  judge_waiting(counts);
  return counts;
}

void Detector::load() {
  start_over();
  stored_eps_.clear();
  read_eps(database_, [this](const std::string& stream, double eps) { stored_eps_[stream] = eps; });
}

void Detector::start_over() {
  model_.clear();
  waiting_.clear();
  feedback_.clear();
  last_history_ = 0;
  last_row_ = 0;
  verdicts_.begin_history(last_history_rowid(database_));
}

bool Detector::goes_on_after(std::size_t rows) const {
  return rows % kRowsPerQuestion != 0 || !stop_();
}

void Detector::read_new_history() {
  std::size_t rows{};
  last_history_ = read_history(database_, last_history_, [&](const HistoryRow& row) {
    const Standing standing = verdicts_.note(row);
    if (standing.is_held) {
      model_.hold(*standing.backup, {});
    } else {
      model_.learn(*standing.backup, standing.cluster);
    }
    if (++rows % kRowsPerPortion == 0) verdicts_.store(row.rowid);
    return goes_on_after(rows);
  });
  verdicts_.store(last_history_);
}

void Detector::read_new_rows() {
  std::vector<Backup> reported;
  std::size_t rows{};
  last_row_ = read_rows_to_process(database_, last_row_,
                                   [&](const RowToProcess& row, ProcessedStatus status) {
                                     if (status != ProcessedStatus::kNormal)
                                       verdicts_.add_reported(row.backup, status);
                                     if (status == ProcessedStatus::kWaiting)
                                       waiting_.push_back(row);
                                     if (status == ProcessedStatus::kAnomalous)
                                       reported.push_back(row.backup);
                                     return goes_on_after(++rows);
                                   });
  verdicts_.store(last_history_);
  std::vector<KnownVerdict> lost;
  for (const Backup& backup : reported) {
    if (is_in_history(database_, backup.unique_key)) continue;
    std::optional<KnownVerdict> known = verdicts_.find(backup.unique_key);
    if (known && known->is_false_positive()) {
      lost.push_back(*std::move(known));
    } else {
      model_.hold(known ? known->backup : backup, {});
    }
  }
  if (lost.empty()) return;
  Transaction transaction(database_);
  for (const KnownVerdict& false_positive : lost) put_into_history(false_positive);
  transaction.commit();
}

// Also one that the history lacked: the anomaly database is an older copy, for example.
void Detector::put_into_history(const KnownVerdict& false_positive) {
  const Backup& backup = false_positive.backup;
  add_false_positive_to_history(database_, backup.unique_key, false_positive.cluster);
  model_.learn(backup, false_positive.cluster);
}

void Detector::judge_waiting(PassCounts& counts) {
  std::sort(waiting_.begin(), waiting_.end(), [](const RowToProcess& a, const RowToProcess& b) {
    return judged_before(a.backup, b.backup);
  });
  std::size_t begin = 0;
  while (begin < waiting_.size() && !stop_()) {
    const std::size_t end = std::min(begin + kRowsPerTransaction, waiting_.size());
    judge_some(begin, end, counts);
    begin = end;
  }
  waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(begin));
}

void Detector::judge_some(std::size_t begin, std::size_t end, PassCounts& counts) {
  Transaction transaction(database_);
  for (std::size_t i = begin; i < end; ++i) judge(waiting_[i], counts);
  transaction.commit();
  for (const auto& [level, text] : lines_) logmsg(level, kDetectionProgram, text.c_str());
  lines_.clear();
  verdicts_.store(last_history_);
}

void Detector::judge(const RowToProcess& row, PassCounts& counts) {
  const Backup& backup = row.backup;
  const std::optional<KnownVerdict> known = verdicts_.find(backup.unique_key);
  if (keep_first_verdict(row, known)) return;
  const Verdict verdict = model_.judge(backup);
  keep_eps(backup.stream);
  if (verdict.outcome == Outcome::kAnomalous) {
    if (!mark_processed(database_, row.rowid, ProcessedStatus::kAnomalous)) return;
    report(row, verdict);
    ++counts.anomalous;
    return;
  }
  if (known) {
    // It was reported. What it is compared with today may be less than what it was compared with.
    mark_processed(database_, row.rowid, ProcessedStatus::kAnomalous);
    model_.hold(known->backup, known->incident);
    return;
  }
  if (!mark_processed(database_, row.rowid, ProcessedStatus::kNormal)) return;
  if (verdict.outcome == Outcome::kAdopted) say_adopted(backup);
  if (verdict.outcome == Outcome::kInconclusive) say_inconclusive(backup, verdict);
  if (verdict.outcome == Outcome::kLearning) {
    say(kLogDetail, backup.stream.text() + ": " + words_for(verdict, model_.settings()));
    ++counts.learning;
  } else {
    ++counts.normal;
  }
  accept(row);
  verdicts_.add(backup, JudgedAs::kAccepted, {});
}

// Of a row that is gathered again after it was judged. One that was reported and whose anomaly was
// lost is judged again, to be reported again. Otherwise the model forgets what it knows of the
// backup.
bool Detector::keep_first_verdict(const RowToProcess& row,
                                  const std::optional<KnownVerdict>& known) {
  const std::string& key = row.backup.unique_key;
  const bool is_false_positive = known && known->is_false_positive();
  const bool is_reported = known && known->judged_as == JudgedAs::kAnomalous;
  if (has_anomaly(database_, anomaly_id(key))) {
    if (!mark_processed(database_, row.rowid, ProcessedStatus::kAnomalous)) return true;
    if (is_false_positive) {
      put_into_history(*known);
    } else {
      model_.hold(known ? known->backup : row.backup, {});
    }
    return true;
  }
  const std::optional<HistoryRow> found = find_in_history(database_, key);
  const bool is_by_verdict =
      found && (found->cluster != kNoCluster || (found->mode == GatherMode::kLive && !is_reported));
  if (is_by_verdict) {
    mark_processed(database_, row.rowid, ProcessedStatus::kNormal);
    return true;
  }
  if (found) model_.forget(found->backup);
  if (known) model_.forget(known->backup);
  if (!known || (is_reported && !is_false_positive)) return false;
  if (!mark_processed(database_, row.rowid, ProcessedStatus::kNormal)) return true;
  if (is_false_positive) {
    put_into_history(*known);
  } else {
    accept(row);
  }
  return true;
}

void Detector::accept(const RowToProcess& row) {
  add_to_history(database_, row.backup.unique_key, kNoCluster);
  model_.learn(row.backup, kNoCluster);
}

void Detector::report(const RowToProcess& row, const Verdict& verdict) {
  const Backup& backup = row.backup;
  const Finding finding = finding_of(backup, verdict, model_);
  AnomalyRow anomaly;
  anomaly.id = anomaly_id(backup.unique_key);
  anomaly.details = json_text(to_json(finding).get());
  anomaly.detection_key = backup.stream.text();
  anomaly.client = backup.stream.client;
  anomaly.detection_time = now();
  add_anomaly(database_, anomaly);
  model_.hold(verdicts_.add(backup, JudgedAs::kAnomalous, finding.incident), finding.incident);
  say(kLogEvent,
      "Anomaly [" + anomaly.id + "] in [" + anomaly.detection_key + "]: " + finding.summary);
}

// Notes it in the first record of the incident; the rest of that record stays as it is.
void Detector::say_adopted(const Backup& backup) {
  const std::string first = first_record_of(model_.incident_of(backup));
  if (const std::optional<AnomalyRow> row = find_anomaly_row(database_, first)) {
    set_details(database_, first, with_adoption(row->details, {backup.backup_id, backup.time}));
  }
  say(kLogEvent, "The change in [" + backup.stream.text() +
                     "] has lasted and is part of the baseline as of backup [" + backup.backup_id +
                     "]");
}

void Detector::say_inconclusive(const Backup& backup, const Verdict& verdict) {
  Stream& stream = model_.stream_of(backup.stream);
  std::string day = formatted_time(backup.time, true, "%Y-%m-%d");
  if (stream.said_inconclusive == day) return;
  say(kLogWarning, "[" + backup.stream.text() + "] is inconclusive: " +
                       std::to_string(std::lround(100 * verdict.noise_share)) +
                       "% of its history is noise");
  stream.said_inconclusive = std::move(day);
}

void Detector::say(int level, std::string text) { lines_.emplace_back(level, std::move(text)); }

void Detector::keep_eps(const StreamKey& stream) {
  const double eps = model_.settings().effective_eps();
  const auto [stored, is_new] = stored_eps_.try_emplace(stream.text(), eps);
  if (!is_new && stored->second == eps) return;
  stored->second = eps;
  store_eps(database_, stream, eps, now());
}

void Detector::follow_feedback() {
  std::vector<std::pair<std::string, Feedback>> changed;
  read_feedback(database_, [&](const std::string& id, Feedback feedback) {
    const auto known = feedback_.find(id);
    if (known == feedback_.end() || known->second != feedback) changed.emplace_back(id, feedback);
  });
  for (const auto& [id, feedback] : changed) {
    apply_feedback(id, feedback);
    feedback_[id] = feedback;
  }
}

void Detector::apply_feedback(const std::string& id, Feedback feedback) {
  const std::string key = unique_key_of(id);
  if (key.empty()) return;  // somebody else's anomaly
  const bool false_positive = feedback == Feedback::kFalsePositive;
  Transaction transaction(database_);
  const std::optional<Backup> backup = find_backup(database_, key);
  if (!backup || !was_reported(key)) return;
  const std::optional<int> cluster =
      false_positive ? add_false_positive(*backup) : withdraw_false_positive(*backup);
  if (!cluster) return;
  transaction.commit();
  logmsgf(kLogEvent, kDetectionProgram, "Anomaly [%s] %s a false positive", id.c_str(),
          false_positive ? "was marked as" : "is no longer marked as");
  verdicts_.set_cluster(key, *cluster, last_history_);
}

// Its anomaly may have been lost since.
bool Detector::was_reported(const std::string& key) {
  if (has_anomaly(database_, anomaly_id(key))) return true;
  const std::optional<KnownVerdict> known = verdicts_.find(key);
  return known && known->judged_as == JudgedAs::kAnomalous;
}

// Both return the new number of the backup's cluster; nothing when nothing changes.
std::optional<int> Detector::add_false_positive(const Backup& backup) {
  const std::optional<HistoryRow> found = find_in_history(database_, backup.unique_key);
  const std::optional<KnownVerdict> known = verdicts_.find(backup.unique_key);
  const bool is_reported = known && known->judged_as == JudgedAs::kAnomalous;
  // Accepted, or a false positive already. What was reported is neither, whoever put it there.
  if (found && (found->cluster != kNoCluster || !is_reported)) return std::nullopt;
  const Backup& judged = is_reported ? known->backup : backup;
  const int cluster = is_reported && known->is_false_positive()
                          ? known->cluster
                          : model_.next_cluster(judged.stream);
  put_into_history({judged, JudgedAs::kAnomalous, cluster, {}});
  return cluster;
}

std::optional<int> Detector::withdraw_false_positive(const Backup& backup) {
  const std::optional<KnownVerdict> known = verdicts_.find(backup.unique_key);
  const bool was_one = known && known->is_false_positive();
  // An accepted backup stays in the history. So does the only row of one that is known to be held.
  const bool is_unmarked = (known && unmark_false_positive(database_, backup.unique_key)) ||
                           remove_false_positive(database_, backup.unique_key);
  if (!is_unmarked && !was_one) return std::nullopt;
  model_.forget_false_positive(known ? known->backup : backup);
  model_.hold(known ? known->backup : backup, {});
  // The rowid of a deleted row may be used again.
  last_history_ = std::min(last_history_, last_history_rowid(database_));
  return kNoCluster;
}

}  // namespace corvane::detect
