#include "anomaly_database/series.h"

#include <algorithm>
#include <string>
#include <unordered_map>

#include "anomaly_database/portions.h"
#include "anomaly_database/statuses.h"

namespace corvane {

namespace {

constexpr std::size_t kLeastPoints = 10;  // of a series

#define SERIES_COLUMNS "SELECT " PORTION_COLUMNS "NUM_FILES, IMAGE_SIZE, KB_TRANSFERRED FROM "
constexpr char kAccepted[] =
    SERIES_COLUMNS "HIST_DATA" AFTER_FORMER_PORTION
                   " AND BACKUP_TIME >= ? AND USER_IDENTIFIED_CLUSTER = ?" BY_PORTIONS;
constexpr char kAnomalous[] =
    SERIES_COLUMNS "DATA_TO_PROCESS" AFTER_FORMER_PORTION
                   " AND BACKUP_TIME >= ? AND PROCESSED_STATUS = ?" BY_PORTIONS;

class Reader {
 public:
  Reader(std::size_t count, const SeriesOf& series_of) : series_of_(series_of) {
    series_.streams.resize(count);
  }

  void take(const Query& row, bool is_anomalous) {
    const std::optional<std::size_t> place = place_of(row);
    if (!place) return;
    series_.streams.at(*place).push_back(
        {row.integer(kPortionTimeColumn), row.real(kPortionOwnColumn),
         row.real(kPortionOwnColumn + 1), row.real(kPortionOwnColumn + 2), is_anomalous});
  }

  AllSeries& series() { return series_; }

 private:
  std::optional<std::size_t> place_of(const Query& row) {
    spell_stream(row, spelling_);
    const auto known = by_spelling_.find(spelling_);
    if (known != by_spelling_.end()) return known->second;
    const auto place = series_of_(read_stream_key(row, kPortionKeyColumn));
    by_spelling_.emplace(spelling_, place);
    return place;
  }

  const SeriesOf& series_of_;
  AllSeries series_;
  std::string spelling_;
  std::unordered_map<std::string, std::optional<std::size_t>> by_spelling_;
};

void keep_newest(AllSeries& series, std::size_t most) {
  std::size_t points = 0;
  for (const auto& stream : series.streams) points += stream.size();
  const std::size_t limit =
      points <= most ? points : std::max(kLeastPoints, most / series.streams.size());
  for (auto& stream : series.streams) {
    std::ranges::stable_sort(stream, {}, &SeriesPoint::time);
    if (stream.size() <= limit) continue;
    stream.erase(stream.begin(), stream.end() - static_cast<std::ptrdiff_t>(limit));
    series.is_shortened = true;
  }
}

}  // namespace

AllSeries read_series(Connection& database, std::size_t count, const SeriesOf& series_of,
                      std::int64_t since, std::size_t most) {
  Reader reader(count, series_of);
  read_portions(
      database, kAccepted, [&](const Query& row) { reader.take(row, false); }, since,
      std::int64_t{kNoCluster});
  read_portions(
      database, kAnomalous, [&](const Query& row) { reader.take(row, true); }, since,
      ProcessedStatus::kAnomalous);
  keep_newest(reader.series(), most);
  return std::move(reader.series());
}

}  // namespace corvane
