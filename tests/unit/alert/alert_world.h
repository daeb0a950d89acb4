// An anomaly database and a state database beside it, with time as a number.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "anomaly_database/anomalies.h"
#include "anomaly_database/anomaly_database.h"
#include "anomaly_database/backup_row.h"
#include "anomaly_database/schema.h"
#include "companions/alert/delivery/outbox.h"
#include "companions/alert/incident/intake.h"
#include "companions/alert/settings_file.h"
#include "companions/alert/state_database.h"
#include "finding/words.h"
#include "sqlite/db_access.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/sql.h"

namespace corvane::alert {

inline constexpr std::int64_t kFirst = 1'700'000'000;

inline std::string details_of(const std::string& client, const std::string& incident, int severity,
                              std::int64_t time) {
  return R"({"schema":1,"severity":)" + std::to_string(severity) + R"(,"incident":")" + incident +
         R"(","stream":{"client":")" + client +
         R"(","policy":"nightly","policy_type":"STANDARD","schedule_type":"FULL",)"
         R"("schedule_name":"daily","application_type":"FS","destination":"disk"},"time":)" +
         std::to_string(time) +
         R"(,"causes":[{"id":"encryption","words":"Files may have been encrypted."}],)"
         R"("features":[{"name":"files","value":100,"usual":1000,"usual_low":990,)"
         R"("usual_high":1010,"deviation":-9}],)"
         R"("last_good":{"backup_id":"good","time":1699900000}})";
}

class AlertWorld : public PlatformFake {
 protected:
  AlertWorld() {
    // Nobody pulls the plug on a test.
    for (const char* pragma : {"PRAGMA journal_mode=WAL", "PRAGMA synchronous=OFF"}) sql(pragma);
    for (const std::string& table : anomaly_schema()) database_.execute_query(table);
    detection_.emplace(open_for_companion(directory_("CV_Anomaly.db")));
    detection_->execute("PRAGMA synchronous=OFF");
    settings_.mail_to = settings_.mail_from = "ops@example.com";
    settings_.mail_severity = 1;
    settings_.storm_limit = 10;
    settings_.storm_minutes = 15;
    restart();
  }

  // A statement that was not brought to its end would keep the database from being checkpointed.
  void TearDown() override {
    sqlite3* state = state_ ? state_->handle() : nullptr;
    for (sqlite3_stmt* one = state == nullptr ? nullptr : sqlite3_next_stmt(state, nullptr);
         one != nullptr; one = sqlite3_next_stmt(state, one)) {
      EXPECT_EQ(sqlite3_stmt_busy(one), 0) << sqlite3_sql(one);
    }
    PlatformFake::TearDown();
  }

  void sql(const std::string& statement) { test::query(database_.get_db_handle(), statement); }
  std::string unprocessed() {
    return test::query_one(database_.get_db_handle(),
                           "SELECT count(*) FROM ANOMALY_DATA WHERE PROCESSED = 0");
  }

  void anomaly(const std::string& id, const std::string& details, std::int64_t time = kFirst) {
    add_anomaly(*detection_,
                {id, details, AnomalyStatus::kUnprocessed, "key", "client", time, {}, 0});
  }
  // What people say of an anomaly, as the service fetches it; 1: a false positive.
  void feedback(const std::string& id, int said) {
    sql("INSERT OR REPLACE INTO ANOMALY_DATA_FEEDBACK VALUES ('" + id + "', " +
        std::to_string(said) + ", 1)");
  }
  // As the service stores it.
  void usual_backup(const std::string& client, std::int64_t time, int cluster = kNoCluster) {
    BackupRow row;
    row.client = client;
    row.policy = "nightly";
    row.policy_type = "Standard";
    row.schedule_type = "0";
    row.schedule_name = "daily";
    row.backup_time = static_cast<int>(time);
    row.cluster_or_status = cluster;
    row.backup_id = client + "_" + std::to_string(time);
    row.job_id = ++jobs_;
    row.set_unique_key();
    insert_row(database_, kInsertHistData, row);
  }

  // As after the process has died.
  void restart() {
    intake_.reset();
    state_ = std::make_unique<StateDatabase>(directory_("state.db"));
    intake_ = std::make_unique<Intake>(directory_("CV_Anomaly.db"), *state_, "m", 5,
                                       [this] { return stop_ && stop_(); });
  }
  PassCounts pass(std::int64_t now = kFirst) {
    intake_->set_settings(settings_);
    PassCounts counts = intake_->pass(now);
    counts.processed = intake_->mark_processed();
    return counts;
  }

  // The channel takes everything that is due: "begin client 3" for each.
  std::vector<std::string> take(const std::string& channel, std::int64_t now = kFirst) {
    std::vector<std::string> words;
    taken_.clear();
    Outbox outbox(*state_);
    while (const std::optional<Delivery> delivery = outbox.begin(channel, now)) {
      outbox.taken(*delivery, now);
      taken_.push_back(delivery->content);
      words.push_back(std::string(name_of(taken_.back().kind)) + " " + taken_.back().client + " " +
                      std::to_string(number_of(taken_.back().severity)));
    }
    return words;
  }
  void take_all(std::int64_t now = kFirst) {
    for (const char* channel : {kWeb, kSyslog, kMail}) take(channel, now);
  }
  std::string state_count(const std::string& table) { return test::count(state_->handle(), table); }

  using DBAccess = Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess;
  test::ScratchDir directory_;
  DBAccess database_{directory_("CV_Anomaly.db"),
                     SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX};
  std::optional<Connection> detection_;  // writes what the detection writes
  int jobs_ = 0;
  Settings settings_;
  std::function<bool()> stop_;
  std::unique_ptr<StateDatabase> state_;
  std::unique_ptr<Intake> intake_;
  std::vector<Message> taken_;  // by the last take()
};

}  // namespace corvane::alert
