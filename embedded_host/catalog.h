// The embedded host's catalog: the backups of the domain, past and planned, and what has been
// reported of them, in one SQLite file that the web service and the product's tools share.
//
// The catalog shows only what has happened by a given instant. A backup is a job from its start
// time on; while it runs it is shown as running, and its image is there from its end time on.
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

// Why there is no opening a catalog: what() begins with its path.
class CatalogError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Opens a catalog; kCreate makes a missing one and its tables. Throws CatalogError, also for a
// missing catalog otherwise and for a file that is not one.
Connection open_catalog(const std::string& path, Connection::Access access);

// What people are told of a failure: of SQLite's refusals SQLite's own words alone.
std::string plain_reason(const std::exception& error);

// Adds backups; one job id again replaces the former. For use inside a transaction of the caller's.
class BackupWriter {
 public:
  // Throws QueryError. The catalog must outlive it.
  explicit BackupWriter(Connection& catalog);

  // Throws QueryError, with SQLITE_CONSTRAINT_UNIQUE when another job has this backup id.
  void put(const Backup& backup);

 private:
  Query& insert_;
};

// Element types of the anomalies collection.
inline constexpr std::string_view kAnomaly = "anomaly";
inline constexpr std::string_view kAnomalyFeedback = "anomalyFeedback";

// Stores what was reported under `id`, in place of what stood there before. `attributes` is a JSON
// object. Returns true when the id is new. Throws QueryError.
bool put_report(Connection& catalog, std::string_view type, std::string_view id,
                std::string_view attributes);

// Stores a user's judgement of an anomaly. Throws std::invalid_argument unless `feedback` is
// FALSE_POSITIVE, CONFIRMED or NONE and `anomaly_id` is 1 to 256 bytes long; QueryError.
void put_feedback(Connection& catalog, std::string_view anomaly_id, std::string_view feedback);

}  // namespace corvane::host
