// One row of ANOMALY_DATA with the finding in it.
#pragma once

#include <jansson.h>

#include <cstdint>
#include <string>

#include "anomaly_database/anomalies.h"
#include "finding/finding.h"

namespace corvane {

// What people said about an anomaly. Whether its incident is resolved is another matter.
enum class Review { kNotReviewed, kConfirmed, kFalsePositive };

struct Anomaly {
  AnomalyRow row;
  Finding finding;  // what the row itself knows when the details cannot be read
  // The name of its incident; the anomaly's own id when the finding names none.
  std::string incident;

  Review review() const;
  // Of the backup, or of the detection when that is not known. Seconds since the epoch.
  std::int64_t time() const { return finding.time > 0 ? finding.time : row.detection_time; }
};

// Parses the details.
Anomaly read_anomaly(AnomalyRow row);
// The same with parsed details; null: they cannot be read.
Anomaly read_anomaly(AnomalyRow row, const json_t* details);

// --- Names ---
// Derived from the UNIQUE_KEY of the backup, so that a record judged again is the same anomaly.

std::string anomaly_id(const std::string& unique_key);
std::string incident_name(const std::string& first_unique_key);
// The key in an anomaly's id; empty when it is not the id of an anomaly of the detection.
std::string unique_key_of(const std::string& anomaly_id);
// The id of an incident's first record, which is its id at the web service. Empty when the name is
// not one of the detection.
std::string first_record_of(const std::string& incident);

}  // namespace corvane
