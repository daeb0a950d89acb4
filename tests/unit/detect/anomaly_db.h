// An anomaly database in a scratch directory, with the service's schema.
#pragma once

#include <memory>
#include <string>

#include "companions/detect/backup.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/sql.h"

namespace corvane::detect {

class AnomalyDb {
 public:
  AnomalyDb() {
    test::open_databases_without_syncing();
    sqlite3* db = nullptr;
    if (sqlite3_open(path().c_str(), &db) != SQLITE_OK) throw std::runtime_error("cannot open");
    db_.reset(db);
    const std::string figures =
        "(BACKUP_ID INT, BACKUP_TIME INT, CLIENT TEXT, POLICY TEXT, POLICY_TYPE TEXT, "
        "SCHEDULE_TYPE %, SCHEDULE_NAME TEXT, APP_TYPE TEXT, NUM_FILES INT, IMAGE_SIZE REAL, "
        "JOB_ID INT, PARENT_JOB_ID INT, KB_TRANSFERRED REAL, START_TIME INT, END_TIME INT, "
        "TOTAL_TIME INT, DEDUP_RATE REAL, MODE INT, # INT, DESTINATION_STORAGE_NAME TEXT, "
        "STREAM_NUMBER INT, ASSET_ID TEXT, UNIQUE_KEY TEXT PRIMARY KEY NOT NULL)";
    const auto filled = [&](const std::string& type, const std::string& mark) {
      std::string text = figures;
      text.replace(text.find('%'), 1, type);
      return text.replace(text.find('#'), 1, mark);
    };
    run("PRAGMA journal_mode=WAL");
    run("CREATE TABLE HIST_DATA " + filled("TEXT", "USER_IDENTIFIED_CLUSTER"));
    run("CREATE TABLE DATA_TO_PROCESS " + filled("INT", "PROCESSED_STATUS"));
    run("CREATE TABLE ANOMALY_DATA (ANOMALY_UNIQUE_ID TEXT PRIMARY KEY NOT NULL, ANOMALY_DETAILS "
        "TEXT, PROCESSED INT, DETECTION_KEY TEXT, CLIENT TEXT, DETECTION_TIME INT)");
    run("CREATE TABLE ANOMALY_DATA_FEEDBACK (ANOMALY_UNIQUE_ID TEXT PRIMARY KEY NOT NULL, "
        "FEEDBACK INT, CAPTURE_TIME INT)");
    run("CREATE TABLE DBSCAN_MODEL_PARAMS (CLIENT TEXT, POLICY TEXT, POLICY_TYPE TEXT, "
        "SCHEDULE_TYPE INT, SCHEDULE_NAME TEXT, APP_TYPE TEXT, EPS REAL, CAPTURE_DATE INT, "
        "DESTINATION_STORAGE_NAME TEXT, ASSET_ID TEXT, PRIMARY KEY (CLIENT, POLICY, POLICY_TYPE, "
        "SCHEDULE_TYPE, SCHEDULE_NAME, APP_TYPE, DESTINATION_STORAGE_NAME))");
  }

  std::string path() const { return directory_("CV_Anomaly.db"); }
  sqlite3* db() const { return db_.get(); }
  void run(const std::string& sql) { test::query(db(), sql); }
  std::string one(const std::string& sql) { return test::query_one(db(), sql); }

  // `mark`: USER_IDENTIFIED_CLUSTER or PROCESSED_STATUS.
  void insert(const std::string& table, const Backup& b, int mark) {
    const auto quoted = [](const std::string& text) { return "'" + text + "',"; };
    const auto number = [](double value) { return std::to_string(value) + ","; };
    run("INSERT OR REPLACE INTO " + table + " VALUES (" + quoted(b.backup_id) +
        std::to_string(b.time) + "," + quoted(b.stream.client) + quoted(b.stream.policy) +
        quoted(b.stream.policy_type) + quoted(b.stream.schedule_type) +
        quoted(b.stream.schedule_name) + quoted(b.stream.app_type) + number(b.figures.files) +
        number(b.figures.size_kb) + std::to_string(b.job_id) + ",7," +
        number(b.figures.transferred_kb) + "1,2," + number(b.figures.seconds) +
        number(b.figures.ratio) + "1," + std::to_string(mark) + "," + quoted(b.stream.destination) +
        "1,'asset','" + b.unique_key + "')");
  }

 private:
  struct Close {
    void operator()(sqlite3* db) const { sqlite3_close(db); }
  };
  test::ScratchDir directory_;
  std::unique_ptr<sqlite3, Close> db_;
};

}  // namespace corvane::detect
