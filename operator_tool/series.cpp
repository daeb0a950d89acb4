#include "operator_tool/series.h"

#include <algorithm>
#include <string>
#include <unordered_map>

namespace corvane::ctl {

namespace {

constexpr std::int64_t kPortion = 100000;
constexpr std::size_t kLeastPoints = 10;  // of a stream
constexpr int kFirstText = 1;
constexpr int kTexts = 7;

#define SERIES_COLUMNS                                                                  \
  "SELECT rowid, CLIENT, POLICY, POLICY_TYPE, SCHEDULE_TYPE, SCHEDULE_NAME, APP_TYPE, " \
  "DESTINATION_STORAGE_NAME, BACKUP_TIME, NUM_FILES, IMAGE_SIZE, KB_TRANSFERRED FROM "

constexpr char kAccepted[] = SERIES_COLUMNS
    "HIST_DATA WHERE rowid > ? AND BACKUP_TIME >= ? AND USER_IDENTIFIED_CLUSTER = -1 "
    "ORDER BY rowid LIMIT 100000";
constexpr char kReported[] = SERIES_COLUMNS
    "DATA_TO_PROCESS WHERE rowid > ? AND BACKUP_TIME >= ? AND PROCESSED_STATUS = 2 "
    "ORDER BY rowid LIMIT 100000";

class Reader {
 public:
  Reader(Database& database, const Survey& survey, std::int64_t since)
      : database_(database), survey_(survey), since_(since) {
    series_.streams.resize(survey.streams.size());
  }

  void read(const char* sql, bool reported) {
    std::int64_t after = 0;
    std::int64_t count = kPortion;
    while (count == kPortion) {
      count = 0;
      Query& rows = database_.query(sql).bind(after).bind(since_);
      while (rows.step()) {
        after = rows.integer(0);
        ++count;
        take(rows, reported);
      }
      rows.restart();
    }
  }

  AllSeries& series() { return series_; }

 private:
  void take(const Query& row, bool reported) {
    const std::size_t place = place_of(row);
    if (place == series_.streams.size()) return;  // came after the survey
    series_.streams[place].push_back(
        {row.integer(8), row.real(9), row.real(10), row.real(11), reported});
  }

  std::size_t place_of(const Query& row) {
    raw_.clear();
    for (int i = kFirstText; i < kFirstText + kTexts; ++i) {
      raw_ += row.view(i);
      raw_ += '\0';
    }
    const auto known = by_raw_.find(raw_);
    if (known != by_raw_.end()) return known->second;
    const detect::StreamKey key{row.text(1),
                                row.text(2),
                                fold_policy_type(row.view(3)),
                                fold_schedule_type(row.view(4)),
                                row.text(5),
                                row.text(6),
                                row.text(7)};
    const auto place = survey_.place.find(key.text());
    const std::size_t found = place == survey_.place.end() ? series_.streams.size() : place->second;
    by_raw_.emplace(raw_, found);
    return found;
  }

  Database& database_;
  const Survey& survey_;
  std::int64_t since_;
  AllSeries series_;
  std::string raw_;
  std::unordered_map<std::string, std::size_t> by_raw_;
};

}  // namespace

AllSeries read_series(Database& database, const Survey& survey, std::int64_t since,
                      std::size_t most) {
  Reader reader(database, survey, since);
  reader.read(kAccepted, false);
  reader.read(kReported, true);
  AllSeries series = std::move(reader.series());
  std::size_t points = 0;
  for (const auto& stream : series.streams) points += stream.size();
  const std::size_t streams = std::max<std::size_t>(series.streams.size(), 1);
  const std::size_t limit = points <= most ? points : std::max(kLeastPoints, most / streams);
  for (auto& stream : series.streams) {
    std::ranges::stable_sort(stream, {}, &SeriesPoint::time);
    if (stream.size() <= limit) continue;
    stream.erase(stream.begin(), stream.end() - static_cast<std::ptrdiff_t>(limit));
    series.is_shortened = true;
  }
  return series;
}

}  // namespace corvane::ctl
