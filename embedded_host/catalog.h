// The embedded host's catalog: the backups of the domain, past and planned, and what has been
// reported of them, in one SQLite file that the web service and the product's tools share.
//
// The catalog shows only what has happened by a given instant. A backup is a job from its start
// time on; while it runs it is shown as running, and its image is there from its end time on.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "embedded_host/backup.h"
#include "embedded_host/sql.h"

namespace corvane::host {

// Where the product keeps its catalog.
inline constexpr const char* kDefaultCatalog = "/usr/tessel/var/global/catalog.db";

// Opens a catalog; kCreate makes a missing one and its tables. Throws SqlError, also for a missing
// catalog otherwise and for a file that is not one.
Database open_catalog(const std::string& path, OpenMode mode);

// Adds backups; one job id again replaces the former. For use inside a transaction of the caller's.
class BackupWriter {
 public:
  explicit BackupWriter(Database& catalog);

  // Throws SqlError, with SQLITE_CONSTRAINT_UNIQUE when another job has this backup id.
  void put(const Backup& backup);

 private:
  Statement insert_;
};

// Element types of the anomalies collection.
inline constexpr std::string_view kAnomaly = "anomaly";
inline constexpr std::string_view kAnomalyFeedback = "anomalyFeedback";

// Stores what was reported under `id`, in place of what stood there before. `attributes` is a JSON
// object. Returns true when the id is new. Throws SqlError.
bool put_report(Database& catalog, std::string_view type, std::string_view id,
                std::string_view attributes);

// Stores a user's judgement of an anomaly. Throws std::invalid_argument unless `feedback` is
// FALSE_POSITIVE, CONFIRMED or NONE and `anomaly_id` is 1 to 256 bytes long; SqlError.
void put_feedback(Database& catalog, std::string_view anomaly_id, std::string_view feedback);

}  // namespace corvane::host
