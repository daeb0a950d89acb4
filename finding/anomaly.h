// One record of ANOMALY_DATA with the finding that stands in it.
#pragma once

#include <jansson.h>

#include <cstdint>
#include <string>

#include "anomaly_database/anomalies.h"
#include "finding/finding.h"

namespace corvane {

// What people have said of an anomaly. Whether its incident is over is another matter.
enum class Review { kNotReviewed, kConfirmed, kFalsePositive };

struct Anomaly {
  AnomalyRow row;
  Finding finding;  // of details that cannot be read: what the row itself knows
  // The name of its incident; the record's own id when the finding names none.
  std::string incident;

  Review review() const;
  // Of the backup; of the detection where that is not known.
  std::int64_t time() const { return finding.time > 0 ? finding.time : row.detection_time; }
};

// Parses the details, once.
Anomaly read_anomaly(AnomalyRow row);
// The same with the details parsed already; null: they cannot be read.
Anomaly read_anomaly(AnomalyRow row, const json_t* details);

// --- Names: derived from the backup's UNIQUE_KEY, so that a row judged again is the same anomaly
// ---

std::string anomaly_id(const std::string& unique_key);
std::string incident_name(const std::string& first_unique_key);
// The key again; empty when it is not one of these names.
std::string unique_key_of(const std::string& anomaly_id);
// The id of the incident's first record: its id at the web service. Empty when the name is not the
// detection's.
std::string first_record_of(const std::string& incident);

}  // namespace corvane
