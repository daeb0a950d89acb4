// What the detection has reported (ANOMALY_DATA) and what people said about it
// (ANOMALY_DATA_FEEDBACK). Everything throws QueryError.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "anomaly_database/statuses.h"
#include "sqlite/connection.h"

namespace corvane {

// A row of ANOMALY_DATA with its feedback.
struct AnomalyRow {
  std::string id;       // ANOMALY_UNIQUE_ID
  std::string details;  // ANOMALY_DETAILS
  AnomalyStatus status = AnomalyStatus::kUnprocessed;
  std::string detection_key;
  std::string client;
  std::int64_t detection_time = 0;   // seconds since the epoch
  std::optional<Feedback> feedback;  // absent: not reviewed
  std::int64_t feedback_time = 0;    // when it was fetched, seconds since the epoch; 0: none
};

// --- Look-ups ---

std::optional<AnomalyRow> find_anomaly_row(Connection& database, const std::string& id);
bool has_anomaly(Connection& database, const std::string& id);

// Candidates for the anomaly of a backup. The first finds those whose ids end with the backup's id,
// without reading the details of others; the second those whose details hold it as a text.
std::vector<AnomalyRow> find_anomalies_named_after(Connection& database,
                                                   const std::string& backup_id);
std::vector<AnomalyRow> find_anomalies_that_name(Connection& database,
                                                 const std::string& backup_id);

// All anomalies, by rowid.
void read_anomaly_rows(Connection& database, const std::function<void(AnomalyRow&&)>& visit);

// Those that are not processed, the oldest detection first.
std::vector<AnomalyRow> unprocessed_rows(Connection& database);

// Ids of the anomalies that are not processed, the oldest detection first.
std::vector<std::string> unprocessed_anomalies(Connection& database);

// --- Feedback ---

void read_feedback(Connection& database,
                   const std::function<void(const std::string& anomaly_id, Feedback)>& visit);
std::int64_t count_feedback(Connection& database);

// --- What the companions write, inside their transactions ---

// Does nothing when there is an anomaly of this id.
void add_anomaly(Connection& database, const AnomalyRow& row);
void set_details(Connection& database, const std::string& id, const std::string& details);
void mark_processed(Connection& database, const std::string& id);

}  // namespace corvane
