#include "anomaly_database/backup.h"

namespace corvane {

void read_backup(const Query& row, int first, Backup& into) {
  into.unique_key = row.view(first);
  into.backup_id = row.view(first + 1);
  into.job_id = row.integer(first + 2);
  into.time = static_cast<std::int32_t>(row.integer(first + 3));
  into.figures = {row.real(first + 4), row.real(first + 5), row.real(first + 6),
                  row.real(first + 7), row.real(first + 8)};
  read_stream_key(row, first + 9, into.stream);
}

}  // namespace corvane
