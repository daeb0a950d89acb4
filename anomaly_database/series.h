// The figures of every stream's backups since some moment, for charts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "anomaly_database/stream_key.h"
#include "sqlite/connection.h"

namespace corvane {

struct SeriesPoint {
  std::int64_t time = 0;  // of the backup
  double files = -1;      // negative: unknown
  double size_kb = -1;
  double transferred_kb = -1;
  bool is_anomalous = false;
};

struct AllSeries {
  std::vector<std::vector<SeriesPoint>> streams;  // each by time
  bool is_shortened = false;                      // the older points of some were left out
};

// Which of `count` series a stream belongs to; absent: none.
using SeriesOf = std::function<std::optional<std::size_t>(const StreamKey&)>;

// The backups since a time, accepted or anomalous. When there are more than `most` in all, only the
// newest of each series are kept, so that about `most` are left. Throws QueryError.
AllSeries read_series(Connection& database, std::size_t count, const SeriesOf& series_of,
                      std::int64_t since, std::size_t most);

}  // namespace corvane
