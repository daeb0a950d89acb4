// Rows of HIST_DATA and DATA_TO_PROCESS and the streams that they belong to, read in portions with
// a short transaction each.
#pragma once

#include <cstdint>
#include <string>

#include "companions/common/stream_key.h"
#include "operator_tool/database.h"

namespace corvane::ctl {

// A query for read_portions() selects these columns and then its own, has "rowid > ?" as its first
// condition, and ends with BY_PORTIONS.
#define STREAM_COLUMNS "rowid, " STREAM_KEY_COLUMNS ", BACKUP_TIME, "
#define BY_PORTIONS " ORDER BY rowid LIMIT ?"
inline constexpr int kKeyColumn = 1;
inline constexpr int kTimeColumn = kKeyColumn + kStreamKeyColumns;
inline constexpr int kOwnColumn = kTimeColumn + 1;  // the first of the query's own
inline constexpr std::int64_t kPortion = 100000;

// The names as the row spells them: equal for equal rows, and faster than the stream's key.
void spell_stream(const Query& row, std::string& spelling);

// `conditions` are bound between the rowid and the limit.
template <typename Visit, typename... Conditions>
void read_portions(Database& database, const char* sql, Visit visit, Conditions... conditions) {
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

}  // namespace corvane::ctl
