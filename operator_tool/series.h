// The figures of every stream's backups of some days, for charts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "operator_tool/database.h"
#include "operator_tool/survey.h"

namespace corvane::ctl {

struct SeriesPoint {
  std::int64_t time = 0;
  double files = -1;  // negative: unknown
  double size_kb = -1;
  double transferred_kb = -1;
  bool is_reported = false;  // as anomalous
};

struct AllSeries {
  std::vector<std::vector<SeriesPoint>> streams;  // in the survey's order, each by time
  bool is_shortened = false;                      // the older points of some were left out
};

// The backups since a time, accepted or reported; of each stream so many of the newest that about
// `most` are kept in all.
AllSeries read_series(Database& database, const Survey& survey, std::int64_t since,
                      std::size_t most);

}  // namespace corvane::ctl
