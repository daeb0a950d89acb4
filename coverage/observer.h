// Brings the ledger up to date: what the service's log, the anomaly database and the clock tell.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "coverage/gathers.h"
#include "coverage/holes.h"
#include "coverage/ledger.h"
#include "coverage/missing_backups.h"
#include "sqlite/connection.h"

namespace corvane::coverage {

// What an observer needs of the world.
struct Sights {
  std::string database;               // the anomaly database
  std::string log;                    // of the service
  std::function<std::int64_t()> now;  // seconds since the epoch
  std::function<bool(pid_t process)>
      runs_as_service;  // whether a process of the service has this id
};

// Everything throws QueryError. `purged`: older backups are purged by the configuration.
class Observer {
 public:
  Observer(Ledger& ledger, Sights sights)
      : ledger_(ledger),
        gathers_(ledger),
        holes_(ledger),
        missing_(ledger),
        sights_(std::move(sights)) {}

  // Reads what is new. A look of cvanomalyheal begins with it.
  void read(std::int64_t purged);
  // Notes what healing has changed.
  void end_look(std::int64_t purged);

  // Nothing waits for its next attempt any more.
  void make_due();

  // Finds the holes again, inside a transaction.
  std::vector<Hole> find_holes(std::int64_t purged);
  // Since when backups are kept; since when they have to be there.
  std::int64_t not_before(std::int64_t purged);
  std::int64_t horizon(std::int64_t purged);

 private:
  bool follow_log();
  void distrust_the_future(std::int64_t purged);
  void notice_another_database(Connection& database);
  void notice_unjudged(Connection& database);
  void notice_oldest(Connection& database);
  void notice_recovery();
  void notice_found(Connection& database);
  void notice_unaudited(std::int64_t purged);
  void notice_setting(std::int64_t purged);
  void audit_again();

  Ledger& ledger_;
  Gathers gathers_;
  Holes holes_;
  MissingBackups missing_;
  Sights sights_;
};

}  // namespace corvane::coverage
