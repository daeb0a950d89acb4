#include "coverage/restarts.h"

#include <gtest/gtest.h>

#include "tests/support/scratch_dir.h"
#include "tests/support/sql.h"

namespace corvane::coverage {
namespace {

using Names = std::vector<std::string>;

constexpr std::int64_t kStart = 1'700'000'000;
constexpr std::int64_t kMinute = 60;

class Restarts : public testing::Test {
 protected:
  Ledger made_ledger() const {
    test::open_databases_without_syncing();
    return Ledger(directory_("ledger.db"));
  }
  Programs programs() {
    return {.now = [this] { return now_; },
            .service_runs = [this] { return service_runs_; },
            .is_wanted = [this](const std::string&) { return is_wanted_; },
            .is_running = [this](const std::string& name) { return name == running_; },
            .start =
                [this](const std::string& name) {
                  started_.push_back(name);
                  if (on_start_) on_start_();
                },
            .stop = [this](const std::string& name) { stopped_.push_back(name); },
            .restart_service =
                [this] {
                  ++restarts_;
                  service_runs_ = !is_slow_;
                },
            .start_service = [this] { ++service_starts_; }};
  }
  void look() { look_after_companion(ledger_, programs(), "detect"); }
  void look_at_service(std::int64_t last_gather) {
    look_after_service(ledger_, programs(), last_gather, 15 * kMinute);
  }

  test::ScratchDir directory_;
  Ledger ledger_ = made_ledger();
  std::int64_t now_ = kStart;
  bool service_runs_ = true;
  bool is_wanted_ = true;
  std::string running_;
  std::function<void()> on_start_;
  Names started_;
  Names stopped_;
  bool is_slow_ = false;  // the service, to end
  int restarts_ = 0;
  int service_starts_ = 0;
};

TEST_F(Restarts, ACompanionThatIsAbsentInTwoLooksIsStarted) {
  look();
  EXPECT_EQ(started_, Names{});
  look();
  EXPECT_EQ(started_, Names{"detect"});
  EXPECT_EQ(stopped_, Names{});
  EXPECT_EQ(ledger_.acts(5),
            (std::vector<Act>{{kStart, "detect was not running. Its start was requested"}}));
}

TEST_F(Restarts, TheTwoLooksFollowEachOther) {
  look();
  running_ = "detect";
  look();
  running_ = "";
  look();
  EXPECT_EQ(started_, Names{});
}

TEST_F(Restarts, WhatIsNotWantedIsNotStarted) {
  is_wanted_ = false;
  for (int i = 0; i < 3; ++i) look();
  is_wanted_ = true;
  service_runs_ = false;
  for (int i = 0; i < 3; ++i) look();
  EXPECT_EQ(started_, Names{});
  service_runs_ = true;
  look();
  EXPECT_EQ(started_, Names{});
}

TEST_F(Restarts, AStopAtTheSameMomentWins) {
  look();
  on_start_ = [this] { service_runs_ = false; };
  look();
  EXPECT_EQ(started_, Names{"detect"});
  EXPECT_EQ(stopped_, Names{"detect"});
  service_runs_ = true;
  now_ += 60 * kMinute;
  on_start_ = [this] { is_wanted_ = false; };
  look();
  look();
  EXPECT_EQ(stopped_.size(), 2U);
}

TEST_F(Restarts, ThePausesGrow) {
  std::vector<std::int64_t> at;
  for (int minute = 0; minute <= 30 * 60; ++minute) {
    now_ = kStart + minute * kMinute;
    const std::size_t before = started_.size();
    look();
    if (started_.size() > before) at.push_back(minute);
  }
  EXPECT_EQ(at, (std::vector<std::int64_t>{1, 6, 16, 36, 76, 156, 316, 636, 996, 1356, 1716}));
}

TEST_F(Restarts, ThePausesBeginAnewAfterAnHour) {
  look();
  look();
  running_ = "detect";
  now_ += 60 * kMinute;
  look();
  EXPECT_EQ(ledger_.number_of("detect_starts"), 1);
  now_ += 1;
  look();
  EXPECT_EQ(ledger_.number_of("detect_starts"), 0);
  running_ = "";
  look();
  look();
  EXPECT_EQ(started_.size(), 2U);
}

TEST_F(Restarts, SomebodyMayHaveItTriedAtOnce) {
  for (int i = 0; i < 4; ++i) look();
  EXPECT_EQ(started_.size(), 1U);
  begin_anew(ledger_, "detect");
  look();
  EXPECT_EQ(started_.size(), 2U);
}

TEST_F(Restarts, AServiceThatWaitsForTheFutureIsRestartedOnce) {
  look_at_service(kStart + 60);
  EXPECT_EQ(restarts_, 0);
  look_at_service(kStart + 61);
  look_at_service(kStart + 61);
  EXPECT_EQ(restarts_, 1);
  EXPECT_EQ(ledger_.acts(5),
            (std::vector<Act>{{kStart,
                               "The last gather was dated in the future. A restart of "
                               "cvanomalymgmt was requested"}}));
  now_ += 20 * kMinute - 1;
  look_at_service(now_ + 1000);
  EXPECT_EQ(restarts_, 1);
  now_ += 1;
  look_at_service(kStart + 61 + 20 * kMinute);
  EXPECT_EQ(restarts_, 2);
}

TEST_F(Restarts, AServiceThatIsNotRunningIsNotStarted) {
  service_runs_ = false;
  look_at_service(kStart + 10000);
  EXPECT_EQ(restarts_, 0);
}

TEST_F(Restarts, ARestartInTheFutureDoesNotHinderOne) {
  look_at_service(now_ + 10000);
  now_ -= 5000;
  look_at_service(now_ + 20000);
  EXPECT_EQ(restarts_, 2);
}

TEST_F(Restarts, AStartInTheFutureDoesNotHinderOne) {
  look();
  look();
  now_ -= 60 * kMinute;
  look();
  look();
  EXPECT_EQ(started_.size(), 2U);
}

TEST_F(Restarts, AServiceThatTookLongToEndIsStartedByTheNextLook) {
  is_slow_ = true;
  look_at_service(kStart + 10000);
  EXPECT_EQ(service_starts_, 0);
  now_ += 15 * kMinute - 1;
  look_at_service(kStart + 10000);
  EXPECT_EQ(service_starts_, 1);
  look_at_service(kStart + 10000);
  EXPECT_EQ(service_starts_, 1);
}

TEST_F(Restarts, AServiceThatSomebodyStoppedAfterItsRestartIsLeftAlone) {
  look_at_service(kStart + 10000);
  service_runs_ = false;
  look_at_service(kStart + 10000);
  EXPECT_EQ(service_starts_, 0);
}

TEST_F(Restarts, ARestartOfLongAgoIsForgotten) {
  is_slow_ = true;
  look_at_service(kStart + 10000);
  now_ += 15 * kMinute;
  look_at_service(kStart + 10000);
  EXPECT_EQ(service_starts_, 0);
}

TEST_F(Restarts, ARestartThatStartedTheServiceAfterAllIsOver) {
  is_slow_ = true;
  look_at_service(kStart + 10000);
  service_runs_ = true;
  look_at_service(kStart + 10000);
  service_runs_ = false;
  look_at_service(kStart + 10000);
  EXPECT_EQ(service_starts_, 0);
}

}  // namespace
}  // namespace corvane::coverage
