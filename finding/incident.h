// Which anomalies are one incident, and when it is resolved. These rules exist only here; every
// program uses them.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "finding/anomaly.h"

namespace corvane {

// An anomalous backup belongs to the incident of the stream's previous anomalous backup, unless
// that incident is resolved by then: a backup between the two was accepted, or people called a
// record of the incident a false positive. Times are seconds since the epoch. `last_accepted`: the
// stream's latest accepted backup before the new one; absent: none.
bool continues_incident(std::int64_t former_anomalous, std::optional<std::int64_t> last_accepted,
                        bool is_false_positive);

// Why an incident is resolved. The numbers are stored in the alerts' database.
enum class IncidentEnd {
  kNone = 0,           // it is ongoing
  kUsualBackup = 1,    // a backup after its last record was accepted
  kAdopted = 2,        // the same, and the change is part of the baseline
  kFalsePositive = 3,  // people said so of one of its records
};

struct IncidentFacts {
  std::int64_t last = 0;            // backup time of its latest record
  bool has_false_positive = false;  // one of its records is marked as one
  bool is_adopted = false;
  // Time of the latest known accepted backup of a matching stream; 0: none.
  std::int64_t last_accepted = 0;
};
IncidentEnd end_of(const IncidentFacts& facts);

// An incident as a reader of the whole anomaly database sees it.
struct Incident {
  std::string name;
  std::string first_record;  // id of its first record, even if that was purged; may be empty
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

  bool is_resolved() const { return end != IncidentEnd::kNone; }
};

// What incidents_of() needs from the rest of the database.
struct IncidentContext {
  // Time of the latest accepted backup of the matching streams, by DETECTION_KEY; 0: none.
  std::function<std::int64_t(const std::string& detection_key)> last_accepted;
  // Whether people marked the anomaly as a false positive. Its record may have been purged.
  std::function<bool(const std::string& anomaly_id)> is_false_positive;
};

// The latest first. `anomalies` in any order.
std::vector<Incident> incidents_of(const std::vector<Anomaly>& anomalies,
                                   const IncidentContext& context);

}  // namespace corvane
