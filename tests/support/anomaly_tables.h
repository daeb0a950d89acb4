// An anomaly database of its own for each test, as the service makes it.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "anomaly_database/anomalies.h"
#include "anomaly_database/schema.h"
#include "finding/words.h"
#include "sqlite/connection.h"
#include "sqlite/db_access.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/sql.h"
#include "tests/support/test_backup.h"

namespace corvane::test {

class AnomalyTables : public ::testing::Test {
 protected:
  AnomalyTables() {
    for (const std::string& table : anomaly_schema()) database.execute(table.c_str());
  }

  std::string path() const { return directory_("CV_Anomaly.db"); }
  void sql(const std::string& statement) { query(database.handle(), statement); }
  void insert(const std::string& table, const TestBackup& backup) {
    test::insert(service_, table, backup);
  }
  // One a day, the latest a day before `backup`.
  void history(TestBackup backup, int days) {
    for (int day = 0; day < days; ++day) {
      backup.time -= kDay;
      insert("HIST_DATA", backup);
    }
  }
  void anomaly(const std::string& id, const std::string& details) {
    AnomalyRow row;
    row.id = id;
    row.details = details;
    row.detection_key = "key of " + id;
    row.client = "client of " + id;
    row.detection_time = kNow;
    add_anomaly(database, row);
  }

  test::ScratchDir directory_;
  Connection database = made();

 private:
  Connection made() const {
    open_databases_without_syncing();
    return {path(), Connection::Access::kCreate};
  }

  Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess service_{
      path(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX};
};

}  // namespace corvane::test
