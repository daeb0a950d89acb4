#include "companions/detect/store.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "sqlite/sqlite_exception.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/unit/detect/anomaly_db.h"

namespace corvane::detect {
namespace {

using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;
using std::chrono::steady_clock;
using namespace std::chrono_literals;

class LockedStoreTest : public testing::Test {
 protected:
  void SetUp() override {
    fake::reset();
    world_.run("PRAGMA journal_mode=DELETE");  // there a writer keeps readers out
    world_.run("BEGIN EXCLUSIVE");
  }

  AnomalyDb world_;
};

TEST_F(LockedStoreTest, AStopDoesNotWaitLongForAWriter) {
  const auto begin = steady_clock::now();
  EXPECT_THROW(Store(world_.path()).last_history_rowid(), sqlite_exception);
  EXPECT_LT(steady_clock::now() - begin, 2s);
}

TEST_F(LockedStoreTest, WhoOnlyAsksWaitsLonger) {
  std::thread writer([&] {
    std::this_thread::sleep_for(1s);
    world_.run("COMMIT");
  });
  EXPECT_EQ(Store(world_.path(), true).last_history_rowid(), 0);
  writer.join();
}

}  // namespace
}  // namespace corvane::detect
