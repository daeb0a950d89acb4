#include "operator_tool/history.h"

#include <algorithm>
#include <map>

namespace corvane::ctl {

namespace {

#define POINT_COLUMNS                                                                   \
  "SELECT BACKUP_TIME, NUM_FILES, IMAGE_SIZE, KB_TRANSFERRED, DEDUP_RATE, TOTAL_TIME, " \
  "UNIQUE_KEY, " STREAM_KEY_COLUMNS " FROM "
#define OF_STREAM " WHERE CLIENT = ? AND POLICY = ? AND SCHEDULE_NAME = ? AND BACKUP_TIME <= ?"

constexpr char kAccepted[] = POINT_COLUMNS "HIST_DATA" OF_STREAM;
constexpr char kReported[] = POINT_COLUMNS "DATA_TO_PROCESS" OF_STREAM " AND PROCESSED_STATUS = 2";

}  // namespace

std::vector<HistoryPoint> read_history(Database& database, const StreamKey& stream,
                                       std::int64_t until, std::size_t most) {
  std::map<std::string, HistoryPoint> points;
  const auto read = [&](const char* sql, bool reported) {
    Query& rows = database.query(sql)
                      .bind(stream.client)
                      .bind(stream.policy)
                      .bind(stream.schedule_name)
                      .bind(until);
    while (rows.step()) {
      if (!read_stream_key(rows, 7).matches(stream)) continue;
      HistoryPoint point;
      point.time = rows.integer(0);
      point.figures = {rows.real(1), rows.real(2), rows.real(3), rows.real(4), rows.real(5)};
      point.is_reported = reported;
      point.unique_key = rows.text(6);
      points[point.unique_key] = point;
    }
  };
  read(kAccepted, false);
  read(kReported, true);
  std::vector<HistoryPoint> sorted;
  sorted.reserve(points.size());
  for (auto& [key, point] : points) sorted.push_back(std::move(point));
  std::ranges::stable_sort(
      sorted, [](const HistoryPoint& a, const HistoryPoint& b) { return a.time < b.time; });
  if (sorted.size() > most) {
    sorted.erase(sorted.begin(), sorted.end() - static_cast<std::ptrdiff_t>(most));
  }
  return sorted;
}

}  // namespace corvane::ctl
