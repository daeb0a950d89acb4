#include "companions/detect/detector.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <optional>
#include <tuple>
#include <utility>

#include "companions/detect/details.h"
#include "platform/clock.h"
#include "platform/debug_log.h"

namespace corvane::detect {

namespace {

constexpr char kProgram[] = "cvanomalydetect";
// Some milliseconds of work, so that the service never waits long for its turn to write.
constexpr std::size_t kRowsPerTransaction = 64;

std::string day_of(std::int32_t time) {
  const std::time_t seconds = time;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char text[16];
  std::strftime(text, sizeof text, "%Y-%m-%d", &utc);
  return text;
}

}  // namespace

bool judged_before(const Backup& a, const Backup& b) {
  const bool a_part = a.stream.is_incremental();
  const bool b_part = b.stream.is_incremental();
  return std::tie(a.time, a_part, a.unique_key) < std::tie(b.time, b_part, b.unique_key);
}

Detector::Detector(const std::string& database, const Settings& settings,
                   std::function<bool()> stop)
    : store_(database), model_(settings), stop_(std::move(stop)) {}

bool Detector::has_news() {
  const std::int64_t version = store_.data_version();
  return std::exchange(seen_version_, version) != version || !loaded_;
}

PassCounts Detector::pass() {
  PassCounts counts;
  if (!loaded_) load();
  // Rowids only grow; when the last one is gone and lower ones come, the tables were emptied.
  if (store_.last_history_rowid() < last_history_ || store_.last_row_rowid() < last_row_)
    start_over();
  read_new_history();
  read_new_rows();
  if (stop_()) {
    loaded_ = false;  // may have been read in part only
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
  store_.read_eps([this](const std::string& stream, double eps) { stored_eps_[stream] = eps; });
}

void Detector::start_over() {
  model_.clear();
  waiting_.clear();
  feedback_.clear();
  last_history_ = 0;
  last_row_ = 0;
}

void Detector::read_new_history() {
  std::size_t count = 0;
  last_history_ = store_.read_history(last_history_, [&](const Backup& backup, int cluster) {
    model_.learn(backup, cluster);
    return ++count % 4096 != 0 || !stop_();
  });
}

void Detector::read_new_rows() {
  std::vector<Backup> reported;
  std::size_t count = 0;
  last_row_ = store_.read_rows(last_row_, [&](const WaitingRow& row, Status status) {
    if (status == Status::kWaiting) waiting_.push_back(row);
    if (status == Status::kAnomalous) reported.push_back(row.backup);
    return ++count % 4096 != 0 || !stop_();
  });
  std::sort(reported.begin(), reported.end(), judged_before);
  for (const Backup& backup : reported) {
    if (!store_.is_in_history(backup.unique_key)) model_.hold(backup, model_.incident_of(backup));
  }
}

void Detector::judge_waiting(PassCounts& counts) {
  std::sort(waiting_.begin(), waiting_.end(), [](const WaitingRow& a, const WaitingRow& b) {
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
  Transaction transaction(store_.handle());
  for (std::size_t i = begin; i < end; ++i) judge(waiting_[i], counts);
  transaction.commit();
  for (const auto& [level, text] : lines_) logmsg(level, kProgram, text.c_str());
  lines_.clear();
}

void Detector::judge(const WaitingRow& row, PassCounts& counts) {
  const Backup& backup = row.backup;
  // Gathered again after it was judged: what was said of it stands.
  if (store_.is_reported(anomaly_id(backup.unique_key))) {
    store_.mark(row.rowid, Status::kAnomalous);
    return;
  }
  if (store_.is_in_history(backup.unique_key)) {
    store_.mark(row.rowid, Status::kNormal);
    return;
  }
  const Verdict verdict = model_.judge(backup);
  keep_eps(backup.stream);
  if (verdict.outcome == Outcome::kAnomalous) {
    if (!store_.mark(row.rowid, Status::kAnomalous)) return;
    report(row, verdict);
    ++counts.anomalous;
    return;
  }
  if (!store_.mark(row.rowid, Status::kNormal)) return;
  if (verdict.outcome == Outcome::kAdopted) say_adopted(backup);
  if (verdict.outcome == Outcome::kInconclusive) say_inconclusive(backup, verdict);
  if (verdict.outcome == Outcome::kLearning) {
    say(2, backup.stream.text() + ": " + state_of(verdict, model_.settings()));
    ++counts.learning;
  } else {
    ++counts.normal;
  }
  accept(row);
}

void Detector::accept(const WaitingRow& row) {
  store_.add_to_history(row.backup.unique_key, -1);
  model_.learn(row.backup, -1);
}

void Detector::report(const WaitingRow& row, const Verdict& verdict) {
  const Backup& backup = row.backup;
  const std::string incident = model_.incident_of(backup);
  const LastGood last_good = model_.last_good_of(backup.stream);
  store_.report(anomaly_id(backup.unique_key), details_of(backup, verdict, incident, last_good),
                backup.stream, static_cast<int>(now()));
  model_.hold(backup, incident);
  say(4, "Anomaly [" + anomaly_id(backup.unique_key) + "] in [" + backup.stream.text() +
             "]: " + summary_of(backup, verdict));
}

// In the incident that the change began with; what people and the alerts have done with it stays.
void Detector::say_adopted(const Backup& backup) {
  const std::string incident = model_.incident_of(backup);
  const std::optional<std::string> details = store_.details(anomaly_id(incident));
  if (details) store_.set_details(anomaly_id(incident), with_adoption(*details, backup));
  say(4, "The change in [" + backup.stream.text() + "] lasts and is the new normal from backup [" +
             backup.backup_id + "] on");
}

void Detector::say_inconclusive(const Backup& backup, const Verdict& verdict) {
  Stream& stream = model_.stream_of(backup.stream);
  std::string day = day_of(backup.time);
  if (stream.said_inconclusive == day) return;
  say(8, "[" + backup.stream.text() +
             "] is inconclusive: " + std::to_string(std::lround(100 * verdict.noise_share)) +
             " percent of its history is noise");
  stream.said_inconclusive = std::move(day);
}

void Detector::say(int level, std::string text) { lines_.emplace_back(level, std::move(text)); }

void Detector::keep_eps(const StreamKey& stream) {
  const double eps = model_.settings().effective_eps();
  const auto [stored, is_new] = stored_eps_.try_emplace(stream.text(), eps);
  if (!is_new && stored->second == eps) return;
  stored->second = eps;
  store_.store_eps(stream, eps, static_cast<int>(now()));
}

void Detector::follow_feedback() {
  std::vector<std::pair<std::string, bool>> changed;
  store_.read_feedback([&](const std::string& id, bool false_positive) {
    const auto known = feedback_.find(id);
    if (known == feedback_.end() || known->second != false_positive) {
      changed.emplace_back(id, false_positive);
    }
  });
  for (const auto& [id, false_positive] : changed) {
    apply_feedback(id, false_positive);
    feedback_[id] = false_positive;
  }
}

void Detector::apply_feedback(const std::string& id, bool false_positive) {
  const std::string key = unique_key_of(id);
  if (key.empty()) return;  // somebody else's anomaly
  Transaction transaction(store_.handle());
  const std::optional<Backup> backup = store_.find_backup(key);
  if (!store_.is_reported(id) || !backup) return;
  if (store_.is_in_history(key) == false_positive) return;
  if (false_positive) {
    const int cluster = model_.next_cluster(backup->stream);
    store_.add_to_history(key, cluster);
    model_.learn(*backup, cluster);
  } else {
    store_.remove_from_history(key);
    model_.forget_false_positive(*backup);
    model_.hold(*backup, model_.incident_of(*backup));
    // The number of a row that is gone may be given again.
    last_history_ = std::min(last_history_, store_.last_history_rowid());
  }
  transaction.commit();
  logmsgf(4, kProgram, "People say that [%s] is %s", id.c_str(),
          false_positive ? "a false positive" : "no false positive");
}

}  // namespace corvane::detect
