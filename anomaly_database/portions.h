// Reading a whole table of backups without delaying the service: in portions, each a short
// transaction of its own.
#pragma once

#include <cstdint>
#include <string>

#include "anomaly_database/stream_key.h"
#include "sqlite/connection.h"

namespace corvane {

// A query for read_portions() selects these columns and then its own, has its conditions after
// AFTER_FORMER_PORTION, and ends with BY_PORTIONS.
#define PORTION_COLUMNS "rowid, " STREAM_KEY_COLUMNS ", BACKUP_TIME, "
#define AFTER_FORMER_PORTION " WHERE rowid > ?"
#define BY_PORTIONS " ORDER BY rowid LIMIT ?"
inline constexpr int kPortionKeyColumn = 1;
inline constexpr int kPortionTimeColumn = kPortionKeyColumn + kStreamKeyColumns;
inline constexpr int kPortionOwnColumn = kPortionTimeColumn + 1;  // the first of the query's own
inline constexpr std::int64_t kPortion = 100'000;

// `conditions` are bound between the rowid and the limit. Throws QueryError.
template <typename Visit, typename... Conditions>
void read_portions(Connection& database, const char* sql, Visit visit, Conditions... conditions) {
  std::int64_t after = 0;
  std::int64_t read = kPortion;
  while (read == kPortion) {
    read = 0;
    Query& rows = database.query(sql).bind(after);
    (rows.bind(conditions), ...);
    rows.bind(kPortion);
    while (rows.step()) {
      after = rows.integer(0);
      visit(rows);
      ++read;
    }
  }
}

// The names as the row spells them: equal for equal rows, and faster than the stream's key.
inline void spell_stream(const Query& row, std::string& spelling) {
  spelling.clear();
  for (int i = kPortionKeyColumn; i < kPortionKeyColumn + kStreamKeyColumns; ++i) {
    spelling += row.view(i);
    spelling += '\0';
  }
}

}  // namespace corvane
