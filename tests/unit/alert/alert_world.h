// An anomaly database and a state database beside it, with time as a number.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "companions/alert/intake.h"
#include "companions/alert/outbox.h"
#include "companions/alert/settings_file.h"
#include "companions/alert/state_database.h"
#include "sqlite/db_access.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/sql.h"

namespace corvane::alert {

inline constexpr std::int64_t kFirst = 1'700'000'000;
inline constexpr std::int64_t kDay = 86400;

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
    sql("PRAGMA journal_mode=WAL");
    sql("PRAGMA synchronous=OFF");  // nobody pulls the plug on a test
    database_.execute_query(
        "CREATE TABLE ANOMALY_DATA (ANOMALY_UNIQUE_ID TEXT PRIMARY KEY NOT NULL, ANOMALY_DETAILS "
        "TEXT, PROCESSED INT, DETECTION_KEY TEXT, CLIENT TEXT, DETECTION_TIME INT);");
    database_.execute_query(
        "CREATE TABLE ANOMALY_DATA_FEEDBACK (ANOMALY_UNIQUE_ID TEXT PRIMARY KEY NOT NULL, "
        "FEEDBACK INT, CAPTURE_TIME INT);");
    database_.execute_query(
        "CREATE TABLE HIST_DATA (CLIENT TEXT, POLICY TEXT, POLICY_TYPE TEXT, SCHEDULE_TYPE TEXT, "
        "SCHEDULE_NAME TEXT, APP_TYPE TEXT, DESTINATION_STORAGE_NAME TEXT, BACKUP_TIME INT, "
        "USER_IDENTIFIED_CLUSTER INT);");
    settings_.mail_to = settings_.mail_from = "ops@example.com";
    settings_.mail_severity = 1;
    settings_.storm_limit = 10;
    settings_.storm_minutes = 15;
    restart();
  }

  void sql(const std::string& statement) { test::query(database_.get_db_handle(), statement); }
  std::string unprocessed() {
    return test::query_one(database_.get_db_handle(),
                           "SELECT count(*) FROM ANOMALY_DATA WHERE PROCESSED = 0");
  }

  void anomaly(const std::string& id, const std::string& details, std::int64_t time = kFirst) {
    sql("INSERT INTO ANOMALY_DATA VALUES ('" + id + "', '" + details + "', 0, 'key', 'client', " +
        std::to_string(time) + ")");
  }
  // As the service stores it.
  void usual_backup(const std::string& client, std::int64_t time, int cluster = -1) {
    sql("INSERT INTO HIST_DATA VALUES ('" + client +
        "', 'nightly', 'Standard', '0', 'daily', 'NONE', 'NA', " + std::to_string(time) + ", " +
        std::to_string(cluster) + ")");
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
      words.push_back(std::string(kind_name(taken_.back().kind)) + " " + taken_.back().client +
                      " " + std::to_string(taken_.back().severity));
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
  Settings settings_;
  std::function<bool()> stop_;
  std::unique_ptr<StateDatabase> state_;
  std::unique_ptr<Intake> intake_;
  std::vector<Message> taken_;  // by the last take()
};

}  // namespace corvane::alert
