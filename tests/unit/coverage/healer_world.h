// A server with its jobs, the service that gathers from it every quarter of an hour, and its log.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "anomaly_database/backup_row.h"
#include "anomaly_database/schema.h"
#include "coverage/healer.h"
#include "finding/words.h"
#include "sqlite/db_access.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/sql.h"

namespace corvane::coverage {

using Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess;

inline constexpr std::int64_t kStart = 1'769'832'000;  // 2026-01-31T04:00:00Z

struct Job {
  int id = 0;
  std::int64_t start = 0;
  std::int64_t end = 0;
  bool is_kept = true;  // otherwise the server lists it, but it is no backup that is stored
  bool has_data = true;

  BackupRow row() const {
    BackupRow row;
    row.job_id = id;
    row.backup_id = "c_" + std::to_string(start);
    row.backup_time = static_cast<int>(start);
    row.start_time = static_cast<int>(start);
    row.end_time = static_cast<int>(end);
    row.total_time = static_cast<int>(end - start);
    row.mode = 1;
    row.cluster_or_status = 0;
    row.set_unique_key();
    return row;
  }
};

class HealerWorld : public PlatformFake {
 protected:
  Ledger made_ledger() const {
    test::open_databases_without_syncing();
    return Ledger(directory_("ledger.db"));
  }
  static Connection make_database(const std::string& path) {
    Connection made(path, Connection::Access::kCreate);
    made.query("PRAGMA journal_mode=WAL").run();
    for (const std::string& table : anomaly_schema()) made.execute(table.c_str());
    return made;
  }

  void log(const std::string& text, int level = 2, int process = 7) {
    log_as("cvanomalymgmt", text, level, process);
  }
  void log_history(const std::string& text) {
    log_as("ManagementService::do_historical_gather", text, 2, 7);
  }
  void log_as(const std::string& tag, const std::string& text, int level, int process) {
    const std::time_t seconds = now_;
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char time[32];
    std::strftime(time, sizeof time, "%Y-%m-%dT%H:%M:%S", &utc);
    std::ofstream(log_, std::ios::app)
        << time << ".000Z " << process << "d " << level << " " << tag << ": " << text << "\n";
  }

  // What a gather of a range gets. One that is under way at the moment is queued by its caller.
  std::vector<Job> jobs_within(TimeRange range) const {
    std::vector<Job> found;
    for (const Job& job : jobs_) {
      if (job.is_kept && job.start >= range.begin && job.end <= std::min(range.end, now_)) {
        found.push_back(job);
      }
    }
    return found;
  }
  static void store(const std::string& database, const std::vector<Job>& jobs) {
    DBAccess access(database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX);
    for (const Job& job : jobs) insert_row(access, kInsertDataToProcess, job.row());
  }

  enum class How { kAll, kNothing, kAndIsKilled };

  // The service's gather at the present.
  void gather(How how = How::kAll) {
    std::int64_t begin = marker_ + 1;
    for (const std::int64_t start : queue_) begin = std::min(begin, start);
    queue_.clear();
    const TimeRange range{begin, now_};
    log("Capturing data between " + std::to_string(range.begin) + " & " +
        std::to_string(range.end) + " ");
    if (how == How::kAndIsKilled) {
      is_alive_ = false;
      return;
    }
    if (how == How::kNothing) {
      log("Could not capture data between " + std::to_string(range.begin) + " & " +
              std::to_string(range.end) + " ",
          16);
    } else {
      store(database_, jobs_within(range));
      for (const Job& job : jobs_) {
        if (job.start >= range.begin && job.start <= now_ && job.end > now_) {
          queue_.push_back(job.start);
        }
      }
    }
    marker_ = now_;
    mark();
    log("Total time taken for live gather 0.");
  }

  // As the service notes the time of a gather.
  void mark() {
    service_->execute("DELETE FROM LAST_BACKUP_DATA_CAPTURE");
    service_->execute(
        ("INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (" + std::to_string(marker_) + ")").c_str());
  }

  GatherResult gather_into(const std::string& scratch, TimeRange range) {
    asked_.push_back(range);
    if (interrupts_) return {.ending = GatherResult::Ending::kInterrupted};
    if (!problem_.empty()) return {.reason = problem_};
    make_database(scratch);
    store(scratch, jobs_within(range));
    if (on_gathered_) on_gathered_(scratch);
    return {.ending = GatherResult::Ending::kComplete, .lacks_images = lacks_images_};
  }
  Surroundings surroundings() {
    Surroundings world;
    world.sights = {.database = database_,
                    .log = log_,
                    .now = [this] { return now_; },
                    .runs_as_service = [this](pid_t process) { return process == 7 && is_alive_; }};
    world.scratch = directory_("scratch.db");
    world.gather_again = [this, scratch = world.scratch](TimeRange range) {
      return gather_into(scratch, range);
    };
    world.list_ended = [this](TimeRange range, const auto& visit) {
      listed_.push_back(range);
      if (!list_problem_.empty()) throw std::runtime_error(list_problem_);
      for (const Job& job : jobs_) {
        if (job.end >= range.begin && job.end <= range.end && job.end <= now_) {
          visit({job.row().unique_key, {job.start, job.end}, job.has_data});
        }
      }
      return !interrupts_;
    };
    world.stop = [this] { return stops_after_ >= 0 && stops_after_-- <= 0; };
    return world;
  }
  HealRules rules() const { return {not_before_, RowsFor::kDetection}; }
  void look() {
    Healer healer(ledger_, surroundings());
    healer.read_log(rules());
    healer.heal(rules());
  }
  // What `cvanomalyctl gather` does; asks for one portion only if it `is_enough`.
  Healer::ByHand gather_by_hand(TimeRange range, bool is_enough = false) {
    return Healer(ledger_, surroundings()).gather(range, rules(), [&] { return is_enough; });
  }
  std::int64_t stored() const {
    return std::stoll(
        test::count(Connection(database_, Connection::Access::kRead).handle(), "DATA_TO_PROCESS"));
  }
  std::vector<TimeRange> holes() {
    std::vector<TimeRange> ranges;
    for (const Hole& hole : holes_in_ledger_.all()) ranges.push_back(hole.range);
    return ranges;
  }

  test::ScratchDir directory_;
  std::string database_ = directory_("CV_Anomaly.db");
  std::string log_ = directory_("cvanomalymgmt");
  Ledger ledger_ = made_ledger();
  Gathers gathers_{ledger_};
  Holes holes_in_ledger_{ledger_};
  MissingBackups missing_{ledger_};
  // The service has it open as well, so that no other connection is the last one, which has to
  // sync.
  std::optional<Connection> service_{make_database(database_)};

  std::int64_t now_ = kStart;
  std::int64_t marker_ = kStart - 1;
  std::vector<std::int64_t> queue_;
  std::vector<Job> jobs_;
  bool is_alive_ = true;
  std::string problem_;
  std::string list_problem_;
  bool interrupts_ = false;
  bool lacks_images_ = false;
  std::function<void(const std::string& scratch)> on_gathered_;
  std::int64_t not_before_ = kStart;
  int stops_after_ = -1;
  std::vector<TimeRange> asked_;
  std::vector<TimeRange> listed_;
};

}  // namespace corvane::coverage
