// The alerts' own database beside the anomaly database: what was taken in, what each channel has
// taken, what waits.
//
//   record    an anomaly that was taken in, and how many channels have not yet taken what belongs
//   to
//             it; its row goes when the anomaly is marked as processed
//   incident  what several records have in common: one id at the web service
//   message   what is to be told; its words do not change
//   delivery  a message for one channel. not_before: it waits until then. failing_since: from when
//   on
//             the channel has not taken it. held: the end of the quiet hours that hold it back.
//             summary: the message of the summary that it was folded into
//   told      the severity at which a channel knows of an incident
//   channel   how a channel fares
#pragma once

#include <cstdint>
#include <string>

#include "companions/common/query.h"
#include "sqlite/db_access.h"

namespace corvane::alert {

// Of a delivery. Kept as numbers in the database, and written as such in queries.
enum class State {
  kWaiting = 0,
  kFolded = 1,  // goes out with its summary
  kTaken = 2,
  kGivenUp = 3,
  kReplaced = 4,  // a later message says it all
};

// One connection, for one thread. Everything throws sqlite_exception.
class StateDatabase {
 public:
  // Makes the database when it is missing and `create` is set.
  explicit StateDatabase(const std::string& path, bool create = true);
  ~StateDatabase();
  StateDatabase(const StateDatabase&) = delete;
  StateDatabase& operator=(const StateDatabase&) = delete;

  sqlite3* handle() const { return database_.get_db_handle(); }
  // Stays compiled; `sql` is told by its address.
  Query& query(const char* sql);

  // Changes when another connection has written.
  std::int64_t data_version();

  // A number or text kept under a name; 0 and empty when there is none.
  std::int64_t number(const char* name);
  void set_number(const char* name, std::int64_t number);

  // Tells this database's messages from those of any other.
  std::string tag();

 private:
  Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess database_;
  Queries queries_;
};

}  // namespace corvane::alert
