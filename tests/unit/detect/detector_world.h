// A detector on a database with 40 days of one stream's history.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "anomaly_database/anomaly_database.h"
#include "anomaly_database/schema.h"
#include "companions/detect/detector.h"
#include "finding/anomaly.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/unit/detect/anomaly_db.h"
#include "tests/unit/detect/detect_world.h"

namespace corvane::detect {

class DetectorTest : public PlatformFake {
 protected:
  void SetUp() override {
    PlatformFake::SetUp();
    for (int day = 0; day < 40; ++day) world_.insert("HIST_DATA", daily(day), -1);
  }
  Detector make() {
    return Detector(world_.path(), Settings{}, [] { return false; });
  }
  void gather(const Backup& backup) { world_.insert("DATA_TO_PROCESS", backup, 0); }
  std::string status(const Backup& backup) {
    return world_.one("SELECT PROCESSED_STATUS FROM DATA_TO_PROCESS WHERE UNIQUE_KEY = '" +
                      backup.unique_key + "'");
  }
  // "" : not in the history.
  std::string cluster(const Backup& backup) {
    return world_.one("SELECT USER_IDENTIFIED_CLUSTER FROM HIST_DATA WHERE UNIQUE_KEY = '" +
                      backup.unique_key + "'");
  }
  void feedback(const Backup& backup, int value) {
    world_.run("INSERT OR REPLACE INTO ANOMALY_DATA_FEEDBACK VALUES ('" +
               anomaly_id(backup.unique_key) + "', " + std::to_string(value) + ", 1)");
  }
  std::string incident_of_record(const Backup& backup) {
    Connection database = open_for_reading(world_.path());
    return reported_incident(database, backup.unique_key);
  }
  // The row of the history is that of DATA_TO_PROCESS, column by column, but for the mark.
  void expect_same_columns(const Backup& backup, const std::string& mark) {
    const auto row = [&](const std::string& table, const std::string& nineteenth) {
      return test::query(world_.db(), "SELECT " + backup_columns(nineteenth) + " FROM " + table +
                                          " WHERE UNIQUE_KEY = '" + backup.unique_key + "'");
    };
    auto gathered = row("DATA_TO_PROCESS", "'mark'");
    ASSERT_EQ(gathered.size(), 1U);
    EXPECT_EQ(std::set(gathered[0].begin(), gathered[0].end()).size(), kHistoryColumns.size())
        << "columns that cannot be told apart";
    std::replace(gathered[0].begin(), gathered[0].end(), std::string("mark"), mark);
    EXPECT_EQ(row("HIST_DATA", "USER_IDENTIFIED_CLUSTER"), gathered);
  }
  static bool knows(const Detector& detector, const Backup& accepted) {
    return std::ranges::any_of(detector.model().all(), [&](const auto& stream) {
      return stream->key == accepted.stream &&
             std::ranges::any_of(stream->history, [&](const Observation& one) {
               return one.is_same_row(Observation(accepted));
             });
    });
  }

  AnomalyDb world_;
  const Backup good_ = daily(40);
  const Backup bad_ = daily(41, 1000, 1e6, 9e5);
};

}  // namespace corvane::detect
