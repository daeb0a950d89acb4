// All streams as people are told of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "anomaly_database/stream_scan.h"
#include "finding/stream_rules.h"

namespace corvane {

// Records whose application type or destination is not known count for every stream that they
// match, as in the detection. Times are of backups, in seconds since the epoch; 0: none.
struct StreamSummary {
  StreamKey key;
  std::int64_t accepted = 0;         // in the history
  std::size_t that_matter = 0;       // of these, for the next verdict
  std::int64_t false_positives = 0;  // in the history since people called them so
  std::int64_t waiting = 0;          // for the detection
  std::int64_t anomalous = 0;        // found by the detection
  std::int64_t first = 0;            // accepted
  std::int64_t last = 0;             // accepted
  std::int64_t newest = 0;           // of all
  StreamState state = StreamState::kLearning;
};

struct StreamSurvey {
  std::vector<StreamSummary> streams;  // by client, policy, schedule
  std::int64_t history_rows = 0;       // of HIST_DATA
  std::int64_t process_rows = 0;       // of DATA_TO_PROCESS
  std::int64_t waiting_rows = 0;
  std::int64_t oldest_waiting = 0;  // 0: none waits

  std::int64_t count(StreamState state) const;
  // In `streams`; absent for a stream that was not there. `text`: StreamKey::text(), which is also
  // the DETECTION_KEY.
  std::optional<std::size_t> place_of(const std::string& text) const;
  // Latest accepted backup of all streams that match it; 0: none.
  std::int64_t last_accepted(const std::string& text) const;

  struct Known {
    std::size_t place = 0;
    std::int64_t last_accepted = 0;
  };
  std::unordered_map<std::string, Known> known;  // by text
};

// `now`: the time of the verdict that the states are about.
StreamSurvey survey(const StreamScan& scan, const StreamSettings& settings, std::int64_t now);

}  // namespace corvane
