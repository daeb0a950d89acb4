// The tables of the anomaly database. The service creates them; while it runs nobody else creates,
// alters or drops anything there: a statement that another process has prepared before would fail
// once, and a record would be lost with it.
#pragma once

#include <array>
#include <span>
#include <string>

#include "sqlite/connection.h"

namespace corvane {

// One CREATE TABLE a table, in the order in which they are created. A table that is there is kept.
std::span<const std::string> anomaly_schema();

struct Column {
  const char* name;
  const char* type;
};

// HIST_DATA; DATA_TO_PROCESS has the same columns but for the type of SCHEDULE_TYPE, INT there, and
// PROCESSED_STATUS in place of USER_IDENTIFIED_CLUSTER.
inline constexpr std::array<Column, 23> kHistoryColumns{{{"BACKUP_ID", "INT"},
                                                         {"BACKUP_TIME", "INT"},
                                                         {"CLIENT", "TEXT"},
                                                         {"POLICY", "TEXT"},
                                                         {"POLICY_TYPE", "TEXT"},
                                                         {"SCHEDULE_TYPE", "TEXT"},
                                                         {"SCHEDULE_NAME", "TEXT"},
                                                         {"APP_TYPE", "TEXT"},
                                                         {"NUM_FILES", "INT"},
                                                         {"IMAGE_SIZE", "REAL"},
                                                         {"JOB_ID", "INT"},
                                                         {"PARENT_JOB_ID", "INT"},
                                                         {"KB_TRANSFERRED", "REAL"},
                                                         {"START_TIME", "INT"},
                                                         {"END_TIME", "INT"},
                                                         {"TOTAL_TIME", "INT"},
                                                         {"DEDUP_RATE", "REAL"},
                                                         {"MODE", "INT"},
                                                         {"USER_IDENTIFIED_CLUSTER", "INT"},
                                                         {"DESTINATION_STORAGE_NAME", "TEXT"},
                                                         {"STREAM_NUMBER", "INT"},
                                                         {"ASSET_ID", "TEXT"},
                                                         {"UNIQUE_KEY", "TEXT"}}};

// "BACKUP_ID, BACKUP_TIME, ...", with `nineteenth` in place of USER_IDENTIFIED_CLUSTER.
std::string backup_columns(const std::string& nineteenth);

// The first part of this schema that the database lacks: "table X", "column X in table Y"; empty
// when it is complete. It may hold more. Throws QueryError.
std::string missing_part(Connection& database);

}  // namespace corvane
