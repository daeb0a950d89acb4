// Every stream of backups in the database, from one pass over it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "companions/detect/backup.h"
#include "companions/detect/judge.h"
#include "operator_tool/anomalies.h"
#include "operator_tool/database.h"

namespace corvane::ctl {

enum class StreamState {
  kLearning,  // fewer records than the detection wants
  kJudged,
  kDormant,  // silent for so long that the detection will learn anew
};
const char* name_of(StreamState state);

// Records whose application type or destination is not known count for every stream that they may
// belong to, as the detection has it.
struct StreamSummary {
  StreamKey key;
  std::int64_t records = 0;    // accepted, in the history
  std::int64_t by_people = 0;  // in the history since people called them false alarms
  std::int64_t waiting = 0;    // for the detection
  std::int64_t reported = 0;   // as anomalous
  std::int64_t first = 0;      // backup times of the accepted; 0: none
  std::int64_t last = 0;
  std::int64_t newest = 0;  // of all
  StreamState state = StreamState::kLearning;
};

struct Survey {
  std::vector<StreamSummary> streams;  // by client, policy, schedule
  // By DETECTION_KEY, also of those that were folded into another.
  std::unordered_map<std::string, std::size_t> place;
  std::int64_t history_rows = 0;
  std::int64_t process_rows = 0;  // of DATA_TO_PROCESS
  std::int64_t waiting_rows = 0;
  std::int64_t oldest_waiting = 0;  // 0: none waits

  std::int64_t count(StreamState state) const;
};

// Reads in portions, each a short transaction of its own.
Survey survey(Database& database, const detect::Settings& settings, std::int64_t now);

struct Incident {
  std::string name;
  std::string client;
  std::string detection_key;
  std::int64_t first = 0;  // backup times
  std::int64_t last = 0;
  std::int64_t records = 0;
  int severity = 0;  // the highest
  std::string cause;
  std::string summary;  // of the latest record
  std::string latest;   // its id
  bool is_open = true;
};

// The newest first. One is open until a later backup of its stream was accepted, the change was
// adopted, or people called it a false alarm.
std::vector<Incident> incidents_of(const std::vector<FoundAnomaly>& anomalies,
                                   const Survey& survey);

}  // namespace corvane::ctl
