#include "operator_tool/series.h"

#include <algorithm>
#include <string>
#include <unordered_map>

#include "operator_tool/stream_rows.h"

namespace corvane::ctl {

namespace {

constexpr std::size_t kLeastPoints = 10;  // of a stream

constexpr char kAccepted[] =
    "SELECT " STREAM_COLUMNS
    "NUM_FILES, IMAGE_SIZE, KB_TRANSFERRED FROM HIST_DATA "
    "WHERE rowid > ? AND BACKUP_TIME >= ? AND USER_IDENTIFIED_CLUSTER = -1" BY_PORTIONS;
constexpr char kReported[] =
    "SELECT " STREAM_COLUMNS
    "NUM_FILES, IMAGE_SIZE, KB_TRANSFERRED FROM DATA_TO_PROCESS "
    "WHERE rowid > ? AND BACKUP_TIME >= ? AND PROCESSED_STATUS = 2" BY_PORTIONS;

class Reader {
 public:
  Reader(Database& database, const Survey& survey, std::int64_t since)
      : database_(database), survey_(survey), since_(since) {
    series_.streams.resize(survey.streams.size());
  }

  void read(const char* sql, bool reported) {
    read_portions(
        database_, sql, [&](const Query& row) { take(row, reported); }, since_);
  }

  AllSeries& series() { return series_; }

 private:
  void take(const Query& row, bool reported) {
    const std::size_t place = place_of(row);
    if (place == series_.streams.size()) return;  // came after the survey
    series_.streams[place].push_back({row.integer(kTimeColumn), row.real(kOwnColumn),
                                      row.real(kOwnColumn + 1), row.real(kOwnColumn + 2),
                                      reported});
  }

  std::size_t place_of(const Query& row) {
    spell_stream(row, raw_);
    const auto known = by_raw_.find(raw_);
    if (known != by_raw_.end()) return known->second;
    const auto place = survey_.place.find(read_stream_key(row, kKeyColumn).text());
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
