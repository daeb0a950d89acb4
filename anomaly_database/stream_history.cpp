#include "anomaly_database/stream_history.h"

#include <algorithm>
#include <iterator>
#include <map>

#include "anomaly_database/statuses.h"

namespace corvane {

namespace {

#define OF_STREAM " WHERE CLIENT = ? AND POLICY = ? AND SCHEDULE_NAME = ? AND BACKUP_TIME <= ?"
constexpr char kHistory[] = "SELECT " BACKUP_COLUMNS " FROM HIST_DATA" OF_STREAM;
constexpr char kAnomalous[] =
    "SELECT " BACKUP_COLUMNS " FROM DATA_TO_PROCESS" OF_STREAM " AND PROCESSED_STATUS = ?";

}  // namespace

std::vector<HistoryPoint> read_stream_history(Connection& database, const StreamKey& stream,
                                              std::int64_t until, std::size_t most) {
  std::map<std::string, HistoryPoint> points;  // a false positive is in both tables
  Backup backup;
  const auto read = [&](const char* sql, bool is_anomalous) {
    Query& rows = database.query(sql)
                      .bind(stream.client)
                      .bind(stream.policy)
                      .bind(stream.schedule_name)
                      .bind(until);
    if (is_anomalous) rows.bind(ProcessedStatus::kAnomalous);
    while (rows.step()) {
      read_backup(rows, 0, backup);
      if (!backup.stream.matches(stream)) continue;
      points[backup.unique_key] = {backup.time, backup.figures, is_anomalous, backup.unique_key};
    }
  };
  read(kHistory, false);
  read(kAnomalous, true);
  std::vector<HistoryPoint> sorted;
  std::ranges::transform(points, std::back_inserter(sorted),
                         [](auto& entry) { return std::move(entry.second); });
  std::ranges::stable_sort(sorted, {}, &HistoryPoint::time);
  const std::size_t kept = std::min(sorted.size(), most);
  sorted.erase(sorted.begin(), sorted.end() - static_cast<std::ptrdiff_t>(kept));
  return sorted;
}

}  // namespace corvane
