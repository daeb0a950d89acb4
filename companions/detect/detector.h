// The detection over one database: reads the history once, then judges what is new, pass by pass.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "anomaly_database/backups.h"
#include "companions/detect/model.h"

namespace corvane::detect {

// By time of backup; of equal times whole copies first, since they know more about a night.
bool judged_before(const Backup& a, const Backup& b);

// The name of the incident that the backup was reported in; empty when it was not, or is purged.
std::string reported_incident(Connection& database, const std::string& unique_key);

struct PassCounts {
  std::size_t normal = 0;
  std::size_t learning = 0;
  std::size_t anomalous = 0;
};

// What a pass writes it writes in short transactions of some rows each, which hold all that belongs
// to a row: a process that dies anywhere leaves each row either judged or waiting. After an
// exception (sqlite_exception) the object is of no use; make a new one.
class Detector {
 public:
  // `stop` is asked between rows; when it gives true a pass ends early.
  Detector(const std::string& database, const Settings& settings, std::function<bool()> stop);
  Detector(const Detector&) = delete;
  Detector& operator=(const Detector&) = delete;

  // Whether anybody has written since the last pass, or the first pass is still to come.
  bool has_news();

  // Judges what waits and follows the feedback. Throws sqlite_exception.
  PassCounts pass();

  void set_settings(const Settings& settings) { model_.set_settings(settings); }
  const Model& model() const { return model_; }

 private:
  void load();
  void read_new_history();
  void read_new_rows();
  void start_over();
  void judge_waiting(PassCounts& counts);
  void judge_some(std::size_t begin, std::size_t end, PassCounts& counts);
  void judge(const RowToProcess& row, PassCounts& counts);
  void accept(const RowToProcess& row);
  void report(const RowToProcess& row, const Verdict& verdict);
  void say_adopted(const Backup& backup);
  void say_inconclusive(const Backup& backup, const Verdict& verdict);
  void say(int level, std::string text);
  void keep_eps(const StreamKey& stream);
  void follow_feedback();
  void apply_feedback(const std::string& id, Feedback feedback);

  Connection database_;
  Model model_;
  std::function<bool()> stop_;
  bool loaded_ = false;
  std::int64_t seen_version_ = -1;
  std::int64_t last_history_ = 0;
  std::int64_t last_row_ = 0;
  std::vector<RowToProcess> waiting_;
  std::vector<std::pair<int, std::string>>
      lines_;                                 // level and text; logged once what they say is stored
  std::map<std::string, Feedback> feedback_;  // as followed so far
  std::unordered_map<std::string, double> stored_eps_;  // by stream
};

}  // namespace corvane::detect
