// The embedded host's catalog: the backups of the domain, past and planned, and the anomalies
// reported about them, in one SQLite file that the web service and the product's tools share.
//
// The catalog shows only what has happened by a given instant. A backup appears as a running job at
// its start time; its image appears at its end time.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "embedded_host/backup.h"
#include "sqlite/connection.h"

namespace corvane::host {

// Where the product keeps its catalog.
inline constexpr const char* kDefaultCatalog = "/usr/tessel/var/global/catalog.db";

// Why a catalog cannot be opened; what() begins with its path.
class CatalogError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Opens a catalog; kCreate creates a missing one with its tables. Throws CatalogError, also if the
// catalog is missing (without kCreate) or the file is not a catalog.
Connection open_catalog(const std::string& path, Connection::Access access);

// The text of a failure for people; of a QueryError only SQLite's own text.
std::string plain_reason(const std::exception& error);

// Adds backups; an existing job id is replaced. For use inside a transaction of the caller.
class BackupWriter {
 public:
  // Throws QueryError. The catalog must outlive it.
  explicit BackupWriter(Connection& catalog);

  // Throws QueryError, with SQLITE_CONSTRAINT_UNIQUE if another job has this backup id.
  void put(const Backup& backup);

 private:
  Query& insert_;
};

// Element types of the anomalies collection.
inline constexpr std::string_view kAnomaly = "anomaly";
inline constexpr std::string_view kAnomalyFeedback = "anomalyFeedback";

// Stores a report under `id`, replacing an existing one. `attributes` is a JSON object. Returns
// true if the id is new. Throws QueryError.
bool put_report(Connection& catalog, std::string_view type, std::string_view id,
                std::string_view attributes);

// Stores a user's feedback on an anomaly. Throws std::invalid_argument unless `feedback` is
// FALSE_POSITIVE, CONFIRMED or NONE and `anomaly_id` is 1 to 256 bytes long; QueryError.
void put_feedback(Connection& catalog, std::string_view anomaly_id, std::string_view feedback);

}  // namespace corvane::host
