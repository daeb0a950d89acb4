// The detection over one database: reads the history once, then judges what is new, pass by pass.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "anomaly_database/backups.h"
#include "companions/detect/model.h"
#include "companions/detect/verdicts.h"

namespace corvane::detect {

// By time of backup; at equal times full backups first, since they tell more about the source.
bool judged_before(const Backup& a, const Backup& b);

struct PassCounts {
  std::size_t normal = 0;
  std::size_t learning = 0;
  std::size_t anomalous = 0;
};

// A pass writes in short transactions of a few rows. Everything that belongs to a row is in one
// transaction: whenever the process dies, each row is either judged or waiting. The detection's own
// database is written after each of them (see Verdicts). After an exception (sqlite_exception, or
// std::runtime_error when that database is of a later version) the object must not be used again;
// make a new one. Logs under the program's tag.
class Detector {
 public:
  // `stop` is asked between rows; when it returns true the pass ends early.
  Detector(const std::string& database, const Settings& settings, std::function<bool()> stop);
  Detector(const Detector&) = delete;
  Detector& operator=(const Detector&) = delete;

  // Whether somebody has written since the last pass, or no pass has read everything yet.
  bool has_news();

  // Judges the waiting records and follows the feedback. Throws sqlite_exception.
  PassCounts pass();

  // Notes in the detection's own database that a pass has ended.
  void note_pass(const LastPass& pass) { verdicts_.set_last_pass(pass); }

  void set_settings(const Settings& settings) { model_.set_settings(settings); }
  const Model& model() const { return model_; }
  // Of the detection's own database.
  const std::string& verdict_path() const { return verdict_path_; }

 private:
  void load();
  bool goes_on_after(std::size_t rows) const;
  void read_new_history();
  void read_new_rows();
  void start_over();
  void judge_waiting(PassCounts& counts);
  void judge_some(std::size_t begin, std::size_t end, PassCounts& counts);
  void judge(const RowToProcess& row, PassCounts& counts);
  bool keep_first_verdict(const RowToProcess& row, const std::optional<KnownVerdict>& known);
  void put_into_history(const KnownVerdict& false_positive);
  void accept(const RowToProcess& row);
  void report(const RowToProcess& row, const Verdict& verdict);
  void say_adopted(const Backup& backup);
  void say_inconclusive(const Backup& backup, const Verdict& verdict);
  void say(int level, std::string text);
  void keep_eps(const StreamKey& stream);
  void follow_feedback();
  void apply_feedback(const std::string& id, Feedback feedback);
  bool was_reported(const std::string& key);
  std::optional<int> add_false_positive(const Backup& backup);
  std::optional<int> withdraw_false_positive(const Backup& backup);

  Connection database_;
  std::string verdict_path_;
  Verdicts verdicts_;
  Model model_;
  std::function<bool()> stop_;
  bool loaded_ = false;
  std::optional<std::int64_t> seen_version_;
  std::int64_t last_history_{};
  std::int64_t last_row_{};
  std::vector<RowToProcess> waiting_;
  // Level and text; logged when the transaction is committed.
  std::vector<std::pair<int, std::string>> lines_;
  std::map<std::string, Feedback> feedback_;            // as followed so far
  std::unordered_map<std::string, double> stored_eps_;  // by stream
};

}  // namespace corvane::detect
