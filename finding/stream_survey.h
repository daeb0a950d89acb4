// All streams, as people see them.
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

// As in the detection, records with an unknown application type or destination count for every
// stream that they match. Times are of backups, in seconds since the epoch; 0: none.
struct StreamSummary {
  StreamKey key;
  std::int64_t accepted = 0;         // in the history
  std::size_t that_matter = 0;       // of these, the baseline of the next verdict
  std::int64_t false_positives = 0;  // in the history because people said so
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
  std::int64_t oldest_waiting = 0;  // 0: none is waiting

  std::int64_t count(StreamState state) const;
  // Index in `streams`; absent for an unknown stream. `text`: StreamKey::text(), which is also the
  // DETECTION_KEY.
  std::optional<std::size_t> place_of(const std::string& text) const;
  // Time of the latest accepted backup of all matching streams; 0: none.
  std::int64_t last_accepted(const std::string& text) const;

  struct Known {
    std::size_t place = 0;
    std::int64_t last_accepted = 0;
  };
  std::unordered_map<std::string, Known> known;  // by text
};

// The states of the streams are those at `now`.
StreamSurvey survey(const StreamScan& scan, const StreamSettings& settings, std::int64_t now);

}  // namespace corvane
