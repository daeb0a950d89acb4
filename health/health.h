// Health of the service, its companions and its databases, for status, check, metrics and report.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "companions/alert/delivery/outbox.h"
#include "coverage/gathers.h"
#include "coverage/holes.h"
#include "coverage/ledger.h"
#include "coverage/missing_backups.h"
#include "finding/words.h"
#include "health/configured.h"
#include "health/database.h"
#include "health/machine.h"
#include "health/places.h"

namespace corvane::health {

struct Daemon {
  std::string name;
  bool is_wanted = true;  // by the configuration
  pid_t process = 0;      // the one that began first; 0: it is not running
  std::int64_t since = 0;
  std::int64_t log_bytes = 0;
  // Of a companion, by its own database: the end of its last pass, and how long that took in
  // seconds. 0: none is noted.
  std::int64_t last_pass = 0;
  std::int64_t pass_seconds = 0;
  bool is_stopped = false;  // by a signal or a debugger
};

struct GatherTimes {
  std::int64_t last = 0;  // when the last gather began; 0: the history is not gathered yet
  std::int64_t next = 0;  // expected; 0: none, the service is not running
  std::int64_t queued = 0;
  coverage::GatherCounts log;  // of the last 24 hours
};

struct AlertHealth {
  bool is_known = false;  // the alerts have a database
  std::string trouble;    // why it cannot be read; empty: it can
  std::vector<alert::ChannelStatus> channels;

  std::int64_t waiting() const;
  std::int64_t given_up() const;
  std::int64_t oldest() const;  // since when a message has waited; 0: none does
  std::int64_t due() const;     // the same without quiet hours; may lie ahead
};

// What cvanomalyheal knows.
struct LedgerHealth {
  std::int64_t last_look = 0;  // 0: it has never run
  std::string trouble;         // why the ledger cannot be read; empty: it can
  coverage::GatherHealth gathers;
  std::vector<coverage::Hole> holes;
  std::vector<coverage::Missing> missing;
  std::vector<coverage::TimeRange> lost;
  std::vector<coverage::Act> acts;  // the latest first
  // Since when the first backup that waits for the detection has been first; 0: unknown.
  std::int64_t unjudged_since = 0;
  std::int64_t last_end = 0;  // of a gather, which may be a slice of the history; 0: unknown
  // Before which time the service said last that it deletes records, and when. 0: unknown.
  std::int64_t purged_before = 0;
  std::int64_t purged_at = 0;
  // Minutes that the service waits between two gathers, as it said last; 0: unknown.
  std::int64_t interval_minutes = 0;
  std::int64_t given_up = 0;  // missing backups that are not looked for any more
  // Since when backups have not been compared with those of the master server, and why. 0: they
  // have.
  std::int64_t unaudited_since = 0;
  std::string audit_reason;
  // When a part of the holes was healed last, and a part of the backups compared. 0: never.
  std::int64_t healed_at = 0;
  std::int64_t audited_at = 0;

  std::int64_t holes_seconds() const;
};

// What the detection and the alerts have yet to do. Of times the one that counts is one in the
// future, of which nobody knows how long ago it was, else the oldest; 0: there is none.
struct Backlog {
  std::int64_t unjudged = 0;  // backups that wait for the detection
  // When an anomaly that is not processed was detected, or the quiet hours that held it back ended.
  // One that they still hold back does not count.
  std::int64_t oldest_unprocessed = 0;
  // Of anomalies of severity 3 that no channel has delivered and nobody has reviewed.
  std::int64_t oldest_critical = 0;  // when it was detected
  std::int64_t criticals = 0;
};

struct Health {
  std::int64_t now = 0;
  bool has_database = true;  // the anomaly database was read
  Configured configured;
  bool had_companions = false;  // one of them has a database, so that a configuration was there
  std::vector<Daemon> daemons;  // the service first
  GatherTimes gather;
  std::string detection_trouble;  // why the detection's database cannot be read; empty: it can
  AlertHealth alerts;
  LedgerHealth ledger;
  Backlog backlog;
  std::int64_t database_bytes = 0;  // with its write-ahead log
  DiskSpace disk;
  OpenFile service_database = OpenFile::kUnknown;  // whether the service has this database open
  std::vector<std::string> open_to_others;         // files of the database that others may open

  const Daemon& service() const { return daemons.front(); }
  // The service is disabled and has ended: nothing is healed or sent, and nobody expects it.
  bool is_off() const { return !configured.service && service().process == 0; }
  // Seconds that the service waits between two gathers, going by the configuration when it has not
  // said so.
  std::int64_t interval() const;
};

// Throws Trouble, also when a program's own database can be read by its owner, but not by the
// caller.
Health look(const Places& places, Database& database);
// Without the anomaly database. What the caller may not read is a trouble of that file.
Health look_without_database(const Places& places);
// Of an anomaly database that is not there: whether one should be. Another program's database is
// beside it, or the service is running, or a configuration that is there enables it.
bool is_database_missed(const Places& places);

}  // namespace corvane::health
