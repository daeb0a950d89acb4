// Rows that come after newer ones: a program of the operator's has inserted missing backups.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <random>

#include "finding/finding_json.h"
#include "tests/unit/detect/detector_world.h"
#include "util/json.h"

namespace corvane::detect {
namespace {

constexpr int kFirst = 40;
constexpr int kEnd = 80;

// One of each kind: encryption, deletion, a change that lasts, a slow encryption.
std::vector<Backup> backups_of(int day) {
  Backup full = daily(day);
  if (day == 44 || day == 45) full = daily(day, 1000, 1e6, 9e5);
  if (day == 50 || day == 51) full = daily(day, 300, 3e5);
  if (day >= 60) full = daily(day, 2500, 2.5e6);
  const bool slow = day >= 53 && day < 57;
  return {full, slow ? incremental(day, 90, 9e4) : incremental(day, day == 48 ? 900 : 20)};
}

class LateWorld : public DetectorTest {
 protected:
  void SetUp() override {
    DetectorTest::SetUp();
    for (int day = 0; day < kFirst; ++day) world_.insert("HIST_DATA", incremental(day), -1);
    detector_ = std::make_unique<Detector>(world_.path(), Settings{}, [] { return false; });
  }
  void restart() {
    detector_ = std::make_unique<Detector>(world_.path(), Settings{}, [] { return false; });
  }
  // What was decided of each backup of those days, but for what was known only later.
  std::map<std::string, std::string> verdicts() {
    Connection database = open_for_reading(world_.path());
    std::map<std::string, std::string> found;
    for (int day = kFirst; day < kEnd; ++day) {
      for (const Backup& backup : backups_of(day)) {
        std::string& text = found[backup.unique_key] = status(backup);
        auto row = find_anomaly_row(database, anomaly_id(backup.unique_key));
        if (!row) continue;
        Finding finding = read_anomaly(std::move(*row)).finding;
        finding.last_good = {};
        finding.usual_since = 0;
        text += json_text(to_json(finding).get());
      }
    }
    return found;
  }
  void empty() {
    for (const char* table : {"HIST_DATA", "DATA_TO_PROCESS", "ANOMALY_DATA"}) {
      world_.run(std::string("DELETE FROM ") + table);
    }
    detector_.reset();
    std::filesystem::remove(world_.own_path());
  }

  std::unique_ptr<Detector> detector_;
};

TEST_F(LateWorld, LateRowsGetTheVerdictsThatTheyWouldHaveHadInTime) {
  for (int day = kFirst; day < kEnd; ++day) {
    for (const Backup& backup : backups_of(day)) gather(backup);
    detector_->pass();
  }
  const auto expected = verdicts();
  std::size_t anomalous = 0;
  for (const auto& [key, verdict] : expected) anomalous += verdict.starts_with('2');
  ASSERT_GE(anomalous, 8U);
  for (const bool restarts : {false, true}) {
    empty();
    SetUp();
    for (int day = kEnd; day < kEnd + 60; ++day) {
      gather(daily(day, day % 5 == 0 ? 100 : 1000));
      gather(incremental(day, day % 5 == 1 ? 999 : 30));
      gather(weekly(day));
    }
    detector_->pass();
    if (restarts) restart();
    std::vector<Backup> late;
    for (int day = kFirst; day < kEnd; ++day) {
      for (const Backup& backup : backups_of(day)) late.push_back(backup);
    }
    std::shuffle(late.begin(), late.end(), std::mt19937(7));
    for (const Backup& backup : late) gather(backup);
    detector_->pass();
    EXPECT_EQ(verdicts(), expected) << restarts;
    for (const auto& stream : detector_->model().all()) {
      EXPECT_TRUE(std::is_sorted(stream->history.begin(), stream->history.end()));
    }
  }
}

}  // namespace
}  // namespace corvane::detect
