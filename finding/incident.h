// Which anomalies are one incident, and when it is over. These rules stand here alone; every
// program asks them.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "finding/anomaly.h"

namespace corvane {

// An anomalous backup belongs to the incident of the stream's former anomalous backup, unless that
// incident is over at the time of the backup: a backup between the two was accepted, or people
// called a record of the incident a false positive. Times are seconds since the epoch.
// `last_accepted`: of the stream's accepted backups the latest up to the new one; absent: none.
bool continues_incident(std::int64_t former_anomalous, std::optional<std::int64_t> last_accepted,
                        bool is_false_positive);

// Why an incident is over. Numbers: the alerts' database keeps them.
enum class IncidentEnd {
  kNone = 0,           // it is not over
  kUsualBackup = 1,    // a backup after its last record was accepted
  kAdopted = 2,        // the same, and the change is what is usual from now on
  kFalsePositive = 3,  // people said so of one of its records, which is to say of all
};

struct IncidentFacts {
  std::int64_t last = 0;            // backup time of its latest record
  bool has_false_positive = false;  // one of its records is called one
  bool is_adopted = false;
  // Backup time of an accepted backup of a stream that matches, the latest that is known; 0: none.
  std::int64_t last_accepted = 0;
};
IncidentEnd end_of(const IncidentFacts& facts);

// An incident as a reader of the whole anomaly database sees it.
struct Incident {
  std::string name;
  std::string first_record;  // id of its first record, also when that was purged; may be empty
  std::string latest;        // id of its latest record
  std::string detection_key;
  StreamKey stream;
  std::int64_t first = 0;  // backup times
  std::int64_t last = 0;
  std::int64_t records = 0;
  Severity severity = Severity::kNone;  // the highest
  std::optional<CauseKind> cause;       // of the latest record
  std::string summary;                  // of the latest record
  IncidentFacts facts;
  IncidentEnd end = IncidentEnd::kNone;

  bool is_over() const { return end != IncidentEnd::kNone; }
};

// What the grouping asks of the rest of the database.
struct IncidentContext {
  // Latest accepted backup of the streams that match, by DETECTION_KEY; 0: none.
  std::function<std::int64_t(const std::string& detection_key)> last_accepted;
  // Feedback on an anomaly whose record may have been purged.
  std::function<bool(const std::string& anomaly_id)> is_false_positive;
};

// The latest first. `anomalies` in any order.
std::vector<Incident> incidents_of(const std::vector<Anomaly>& anomalies,
                                   const IncidentContext& context);

}  // namespace corvane
