// What an operation on the database left behind when a call in it failed, against what it leaves
// behind otherwise.
#pragma once

#include <algorithm>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/support/faults.h"
#include "tests/unit/management/service_world.h"

namespace corvane::test {

using Rows = std::multiset<std::string>;

inline constexpr int kAny = 1'000'000;

// A line that a failure may add to the log, and what may be different then: so many rows missing
// for each such line, and rows that are there instead, each with this text in it.
struct Stated {
  LogLine line;
  int rows_lost = 0;
  std::string instead = "";
};

struct Outcome {
  Rows rows;  // as another process sees them: "HIST_DATA|c|1700000000|..."
  std::vector<LogLine> log;
};

inline LogLine error(const std::string& text) { return {16, kProgram, text}; }

// The failing request of the fake server, and its log lines.
inline const corvane::fake::HttpAnswer kBrokenRequest{.result = 56, .status = 0, .body = ""};
inline const std::vector<Stated> kBrokenRequestLines{
    {{16, "CurlClient::process_curl_response",
      "\nError occurred while performing curl operation. Return code = 56"}},
    {progress("API return value: 56 ")}};

// One line for each reason that an operation on the database may give, the reason behind `text`.
// `sql` are the statements that the operation runs.
inline std::vector<Stated> with_reasons(const std::string& text,
                                        const std::vector<std::string>& sql, int rows_lost,
                                        const std::string& instead = "") {
  std::vector<Stated> stated{{error(text + "std::bad_alloc"), rows_lost, instead},
                             {error(text + "sqlite query execution failed."), rows_lost, instead}};
  for (const std::string& one : sql) {
    stated.push_back({error(text + "Query execution failed for  " + one), rows_lost, instead});
    stated.push_back(
        {error(text + "sqlite prepare statement failed for query - " + one), rows_lost, instead});
  }
  return stated;
}

inline void append(std::vector<Stated>& stated, const std::vector<Stated>& more) {
  stated.insert(stated.end(), more.begin(), more.end());
}

// Reads the database through a connection of its own, and checks it and the service's connection.
inline Outcome outcome_of(const ServiceWorld& world) {
  Outcome outcome;
  outcome.log = corvane::fake::log_lines();
  EXPECT_NE(sqlite3_get_autocommit(world.handle()), 0) << "a transaction is still open";
  sqlite3* opened = nullptr;
  const int status =
      sqlite3_open_v2(world.database().c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
  const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> db(opened, sqlite3_close);
  EXPECT_EQ(status, SQLITE_OK);
  EXPECT_EQ(query_one(opened, "PRAGMA integrity_check"), "ok");
  for (const std::string& table :
       query_column(opened, "SELECT name FROM sqlite_schema WHERE type = 'table' ORDER BY name")) {
    for (const SqlRow& row : query(opened, "SELECT * FROM " + table)) {
      std::string text = table;
      for (const std::string& value : row) text += "|" + value;
      outcome.rows.insert(text);
    }
  }
  return outcome;
}

inline Rows difference(const Rows& a, const Rows& b) {
  Rows left;
  std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::inserter(left, left.end()));
  return left;
}

inline bool has_logged(const Outcome& outcome, const LogLine& line) {
  return std::find(outcome.log.begin(), outcome.log.end(), line) != outcome.log.end();
}

// Every error that the undisturbed run did not log is one of the stated lines, whole, and no row
// differs but by leave of a stated line.
inline void expect_stated(const Outcome& outcome, const Outcome& undisturbed,
                          const std::vector<Stated>& stated) {
  int may_be_lost = 0;
  std::vector<std::string> instead;
  for (const LogLine& line : outcome.log) {
    if (has_logged(undisturbed, line)) continue;
    const auto found = std::find_if(stated.begin(), stated.end(),
                                    [&](const Stated& one) { return one.line == line; });
    if (found != stated.end()) {
      may_be_lost += found->rows_lost;
      if (!found->instead.empty()) instead.push_back(found->instead);
    } else if (line.level >= 8) {
      ADD_FAILURE() << "logged, but not stated: " << line;
    }
  }
  const Rows lost = difference(undisturbed.rows, outcome.rows);
  EXPECT_LE(static_cast<int>(lost.size()), may_be_lost)
      << "lost without its log line: " << *lost.begin();
  for (const std::string& row : difference(outcome.rows, undisturbed.rows)) {
    EXPECT_TRUE(
        std::any_of(instead.begin(), instead.end(),
                    [&](const std::string& text) { return row.find(text) != std::string::npos; }))
        << "left without its log line: " << row;
  }
}

// Connections that are opened from now on have little memory and small pages, so that a statement
// has to read and write the file, sync it as in the service and checkpoint every few pages.
inline void open_databases_with_little_memory() {
  constexpr auto kSet = +[](sqlite3* db, const char**, const sqlite3_api_routines*) -> int {
    sqlite3_exec(db,
                 "PRAGMA page_size=512; PRAGMA cache_size=10; PRAGMA wal_autocheckpoint=8; "
                 "PRAGMA synchronous=FULL",
                 nullptr, nullptr, nullptr);
    sqlite3_exec(db, "", nullptr, nullptr, nullptr);  // forgets the error of a file that is none
    return SQLITE_OK;
  };
  sqlite3_auto_extension(reinterpret_cast<void (*)()>(kSet));
}

// A service whose database does not fit into its memory.
struct SmallWorld : ServiceWorld {
  SmallWorld() {
    open_databases_with_little_memory();
    open();
  }
};

}  // namespace corvane::test
