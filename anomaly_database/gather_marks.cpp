#include "anomaly_database/gather_marks.h"

namespace corvane {

std::int64_t last_gather(Connection& database) {
  static constexpr char kSql[] = "SELECT max(LAST_BACKUP_TIME) FROM LAST_BACKUP_DATA_CAPTURE";
  return database.number(kSql);
}

std::int64_t count_queued_jobs(Connection& database) {
  static constexpr char kSql[] = "SELECT count(*) FROM QUEUED_TO_CAPTURE_DATA";
  return database.number(kSql);
}

}  // namespace corvane
