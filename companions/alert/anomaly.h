// One record of ANOMALY_DATA as the alerts understand it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "companions/common/slow_change.h"
#include "companions/common/stream_key.h"

namespace corvane::alert {

struct AnomalyRow {
  std::string id;  // ANOMALY_UNIQUE_ID
  std::string details;
  std::string detection_key;
  std::string client;
  std::int64_t detection_time = 0;
};

// A figure of the backup. Amounts as in ANOMALY_DETAILS.
struct Feature {
  std::string name;
  double value = 0;
  bool has_usual = false;  // the next four are known
  double usual = 0;
  double low = 0;
  double high = 0;
  double deviation = 0;  // in spreads
};

// Texts are as they came, of bounded length; plain_text() makes them fit to be shown.
struct Anomaly {
  std::string id;
  std::string incident;     // the record's own id when the details name none
  std::string incident_id;  // the id of the incident's first record
  StreamKey stream;
  bool has_stream = false;
  int severity = 2;  // 1 look at it, 2 important, 3 act now
  std::string summary;
  std::string cause;  // an id; empty: none known
  std::string cause_words;
  std::vector<Feature> features;
  // What the verdict rests on instead of a feature of this one backup.
  std::optional<SlowChange> slow_change;
  std::int64_t time = 0;  // of the backup; 0: unknown
  std::int64_t detected = 0;
  std::string detection_key;
  std::string last_good_id;  // empty: none known
  std::int64_t last_good_time = 0;
  std::string details;  // one JSON object, compact, valid UTF-8, without NUL

  std::int64_t known_time() const { return time > 0 ? time : detected; }
};

// Takes from the details whatever is there and of the right type; details that are no JSON object
// leave what the row itself knows.
Anomaly read_anomaly(const AnomalyRow& row);

// These details carry the note that the change became the new normal.
bool is_adopted(std::string_view details);

}  // namespace corvane::alert
