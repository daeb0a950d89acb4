// An anomaly database with the service's own schema, an alert database beside it, a configuration
// and a log, and what cvanomalyctl says of them.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "companions/alert/state_database.h"
#include "coverage/ledger.h"
#include "finding/words.h"
#include "management/management_service.h"
#include "operator_tool/options.h"
#include "operator_tool/run.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/sql.h"
#include "tests/support/test_backup.h"

namespace corvane::ctl {

// What the tests say of the room below.
using namespace health;  // NOLINT(google-build-using-namespace)
using test::key_of;
using test::kNow;
using test::TestBackup;

struct Said {
  int status = 0;
  std::string out;
  std::string error;
};

class OperatorWorld : public PlatformFake {
 protected:
  OperatorWorld() {
    test::open_databases_without_syncing();
    fake.now = kNow;
    service_ = std::make_unique<ManagementService>(directory_(), "CV_Anomaly.db", "FULL", "m", 15);
    service_->initializeDB();
    unsetenv("COLUMNS");
  }

  std::string database() const { return directory_("CV_Anomaly.db"); }
  // As say() gives them.
  Options with_paths(Options options = {}) const {
    options.utc = true;
    options.database = database();
    options.config = directory_("anomaly_config.conf");
    options.logs = directory_();
    return options;
  }
  // As cvanomalyheal leaves it after a look that found nothing.
  coverage::Ledger looked(std::int64_t time = kNow) const {
    coverage::Ledger ledger(directory_("CV_Anomaly_Coverage.db"));
    ledger.add_look(time);
    return ledger;
  }
  // Only the owner may open the database.
  void close_to_others() const {
    for (const char* suffix : {"", "-wal", "-shm"}) chmod((database() + suffix).c_str(), 0600);
  }
  sqlite3* db() { return service_->m_db->get_db_handle(); }
  void sql(const std::string& statement) { test::query(db(), statement); }
  void close_database() { service_.reset(); }

  static std::string quoted(const std::string& text) {
    std::string safe = "'";
    for (const char letter : text) safe += letter == '\'' ? "''" : std::string(1, letter);
    return safe + "'";
  }

  void insert(const std::string& table, const TestBackup& backup) {
    test::insert(*service_->m_db, table, backup);
  }
  void history(TestBackup backup, int days) {
    for (int day = 0; day < days; ++day) {
      backup.time -= kDay;
      insert("HIST_DATA", backup);
    }
  }

  // Its name is "anomaly_" and the key of the backup, its incident that of `first`.
  void anomaly(const TestBackup& b, int severity, const TestBackup& first,
               const std::string& more = "") {
    sql("INSERT INTO ANOMALY_DATA VALUES (" + quoted("anomaly_" + key_of(b)) + "," +
        quoted(
            R"({"schema":1,"summary":"daily backup of )" + b.client + R"(: unusual","severity":)" +
            std::to_string(severity) + R"(,"incident":"incident_)" + key_of(first) +
            R"(","stream":{"client":")" + b.client + R"(","policy":")" + b.policy +
            R"(","policy_type":"STANDARD","schedule_type":"FULL","schedule_name":")" + b.schedule +
            R"(","application_type":"FS","destination":"disk"},"backup_id":")" + b.client + "_" +
            std::to_string(b.time) + R"(","job_id":1,"time":)" + std::to_string(b.time) +
            R"(,"causes":[{"id":"encryption","words":"Files may have been encrypted."}],)"
            R"("features":[{"name":"files","unit":"files","value":100,"usual":1000,)"
            R"("usual_low":990,"usual_high":1010,"deviation":-9}],"last_good":)"
            R"({"backup_id":"good","time":1699900000})" +
            more + "}") +
        ",0," + quoted(b.client + "/" + b.policy + "/STANDARD/FULL/" + b.schedule + "/FS/disk") +
        "," + quoted(b.client) + "," + std::to_string(b.time + 60) + ")");
  }
  void feedback(const TestBackup& b, int value) {
    sql("INSERT INTO ANOMALY_DATA_FEEDBACK VALUES (" + quoted("anomaly_" + key_of(b)) + "," +
        std::to_string(value) + "," + std::to_string(b.time + 3600) + ")");
  }

  void running(const std::string& program) { fake.processes[program] = {getpid()}; }
  void run_everything() {
    for (const char* name : {"cvanomalymgmt", "cvanomalydetect", "cvanomalyalert"}) running(name);
  }
  void configure(const std::string& text) {
    test::write_file(directory_("anomaly_config.conf"), text);
  }
  void switch_everything_on() {
    configure(
        "[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_DETECTION_SERVICE=0\n"
        "DISABLE_ALERT_SERVICE=0\n");
  }
  void gathered(std::int64_t time) {
    sql("DELETE FROM LAST_BACKUP_DATA_CAPTURE");
    sql("INSERT INTO LAST_BACKUP_DATA_CAPTURE VALUES (" + std::to_string(time) + ")");
  }

  Said say(const std::vector<std::string>& arguments) {
    std::vector<std::string> all{"cvanomalyctl"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    for (const std::string& more : {std::string("--database"), database(), std::string("--logs"),
                                    directory_(), std::string("--utc")}) {
      all.push_back(more);
    }
    std::vector<const char*> pointers;
    pointers.reserve(all.size());
    for (const std::string& argument : all) pointers.push_back(argument.c_str());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Said said;
    said.status = run(static_cast<int>(pointers.size()), pointers.data());
    said.out = testing::internal::GetCapturedStdout();
    said.error = testing::internal::GetCapturedStderr();
    return said;
  }

  test::ScratchDir directory_;
  std::unique_ptr<ManagementService> service_;
};

}  // namespace corvane::ctl
