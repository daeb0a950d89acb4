#include "health/gaps.h"

#include <gtest/gtest.h>

#include <functional>

#include "finding/words.h"

namespace corvane::health {
namespace {

using coverage::Hole;
using coverage::Missing;

constexpr std::int64_t kNow = 1'700'000'000;  // 2023-11-14 22:13:20 UTC

class GapsTest : public testing::Test {
 protected:
  GapsTest() {
    health_.now = kNow;
    health_.daemons.resize(1);
    health_.daemons[0].process = 1;
  }
  // "critical name: words; ..."
  std::string said() const {
    std::string text;
    for (const Problem& problem : gap_problems(health_)) {
      if (!text.empty()) text += "; ";
      text += std::string(name_of(problem.level)) + " " + problem.name + ": " + problem.words;
    }
    return text.empty() ? "OK" : text;
  }
  // The level of a hole.
  std::string of_hole(std::int64_t age, std::int64_t attempts, std::int64_t healed_ago = kDay) {
    health_.ledger.holes = {{{1, 60}, kNow - age, attempts, 0, ""}};
    health_.ledger.healed_at = kNow - healed_ago;
    return first_word();
  }
  std::string of_missing(std::int64_t age, std::int64_t attempts, std::int64_t answers,
                         std::int64_t healed_ago = kDay) {
    health_.ledger.missing = {{"k", {1, 2}, kNow - age, attempts, 0, answers}};
    health_.ledger.healed_at = kNow - healed_ago;
    return first_word();
  }
  std::string of_comparing(std::int64_t age, const char* reason, std::int64_t compared_ago,
                           std::int64_t healed_ago = kDay) {
    health_.ledger.unaudited_since = kNow - age;
    health_.ledger.audit_reason = reason;
    health_.ledger.audited_at = kNow - compared_ago;
    health_.ledger.healed_at = kNow - healed_ago;
    return first_word();
  }
  std::string first_word() const {
    const std::string text = said();
    return text.substr(0, text.find(' '));
  }

  Health health_;
};

TEST_F(GapsTest, AHoleIsAWarningWhenTwoLooksHaveSeenItOrAnAttemptHasFailed) {
  EXPECT_EQ(of_hole(10 * kMinute - 1, 0), "OK");
  EXPECT_EQ(of_hole(10 * kMinute, 0), "warning");
  EXPECT_EQ(of_hole(0, 1), "warning");
  EXPECT_EQ(of_hole(-60, 0), "OK");
  // What was gathered could not be added.
  health_.ledger.holes = {{{1, 60}, kNow, 0, 0, "disk is full"}};
  EXPECT_EQ(first_word(), "warning");
}

TEST_F(GapsTest, AHoleOfWhichNothingIsHealedForAnHourIsCritical) {
  EXPECT_EQ(of_hole(kHour - 1, 0), "warning");
  EXPECT_EQ(of_hole(kHour, 0), "critical");
  EXPECT_EQ(of_hole(kHour, 1), "critical");
  EXPECT_EQ(of_hole(10 * kHour, 0, kHour - 1), "warning");  // it is being healed
  EXPECT_EQ(of_hole(10 * kHour, 0, kHour), "critical");
  EXPECT_EQ(of_hole(10 * kHour, 1, 0), "critical");
  EXPECT_EQ(of_hole(-61, 0), "critical");  // found by a clock that was ahead
}

TEST_F(GapsTest, TheWorstHoleCounts) {
  health_.ledger.holes = {{{1, 60}, kNow, 0, 0, ""}, {{80, 90}, kNow - kHour, 0, 0, ""}};
  EXPECT_EQ(first_word(), "critical");
}

TEST_F(GapsTest, AMissingBackupIsAWarningWhenAnswersDoNotSettleIt) {
  EXPECT_EQ(of_missing(30 * kMinute - 1, 0, 0), "OK");
  EXPECT_EQ(of_missing(30 * kMinute, 0, 0), "warning");
  EXPECT_EQ(of_missing(0, 2, 2), "OK");
  EXPECT_EQ(of_missing(0, 2, 1), "warning");
  EXPECT_EQ(of_missing(0, 0, 2), "OK");
  EXPECT_EQ(of_missing(kHour, 0, 0), "critical");
  EXPECT_EQ(of_missing(kHour, 0, 0, 60), "warning");
  EXPECT_EQ(of_missing(kHour, 1, 0, 60), "critical");
  EXPECT_EQ(of_missing(-61, 0, 0), "critical");
}

TEST_F(GapsTest, ComparingThatDoesNotGetOnForAnHourIsCritical) {
  EXPECT_EQ(of_comparing(kHour - 1, "", kDay), "OK");
  EXPECT_EQ(of_comparing(kHour, "", kDay), "critical");
  EXPECT_EQ(of_comparing(kHour, "", kHour - 1), "OK");
  EXPECT_EQ(of_comparing(kHour, "", kDay, kHour - 1), "OK");  // holes come first
  EXPECT_EQ(of_comparing(kHour, "503", 60, 60), "critical");
  EXPECT_EQ(of_comparing(-61, "", kDay), "critical");
  health_.configured.heals = false;
  EXPECT_EQ(of_comparing(kHour, "503", kDay), "OK");
}

TEST_F(GapsTest, OfAServiceThatIsSwitchedOffAllAreWarnings) {
  health_.configured.service = false;
  EXPECT_EQ(of_hole(kHour, 0), "critical");  // it is still running
  health_.daemons[0].process = 0;
  EXPECT_EQ(of_hole(kHour, 0), "warning");
  health_.configured.service = true;
  EXPECT_EQ(of_hole(kHour, 0), "critical");
}

TEST_F(GapsTest, SayWhatIsMissing) {
  EXPECT_EQ(said(), "OK");
  health_.ledger.holes = {{{kNow - 9000, kNow - 8941}, kNow - kHour, 0, 0, ""},
                          {{kNow - 7000, kNow - 6941}, kNow, 0, 0, ""}};
  EXPECT_EQ(said(),
            "critical holes: 2 min are still to be gathered again, the first from 2023-11-14 19:43 "
            "UTC");
  health_.ledger.holes[1].attempts = 1;
  health_.ledger.holes[0].reason = "HTTP 500.";
  EXPECT_EQ(said(),
            "critical holes: 2 min were not gathered, the first from 2023-11-14 19:43 UTC: HTTP "
            "500");
  health_.ledger.holes.clear();
  health_.ledger.missing = {{"k", {1, 2}, kNow - kHour, 0, 0}};
  EXPECT_EQ(said(),
            "critical missing_backups: 1 backup that the master server has is missing from the "
            "database");
  health_.ledger.missing.push_back({"l", {1, 2}, kNow, 0, 0});
  EXPECT_EQ(said(),
            "critical missing_backups: 2 backups that the master server has are missing from the "
            "database");
  health_.ledger.missing.clear();
  health_.ledger.lost = {{kNow - kDay, kNow - kHour}};
  EXPECT_EQ(said(), "warning lost_ranges: 1 lost range, from 2023-11-13 22:13 UTC");
  health_.ledger.lost.push_back({2, 3});
  health_.ledger.given_up = 1;
  EXPECT_EQ(said(),
            "warning lost_ranges: 2 lost ranges, the first from 2023-11-13 22:13 UTC; "
            "warning given_up_backups: 1 missing backup was given up");
  health_.ledger.lost.clear();
  health_.ledger.given_up = 2;
  EXPECT_EQ(said(), "warning given_up_backups: 2 missing backups were given up");
  health_.ledger.given_up = 0;
  health_.ledger.unaudited_since = kNow - kHour;
  EXPECT_EQ(said(),
            "critical not_compared: the backups in the database have not been compared with those "
            "of the master server for 60 min");
  health_.ledger.unaudited_since = kNow + 61;
  health_.ledger.audit_reason = "HTTP 503.";
  EXPECT_EQ(said(),
            "critical not_compared: the backups in the database have not been compared with those "
            "of the master server since 2023-11-14 22:14 UTC, in the future: HTTP 503");
}

}  // namespace
}  // namespace corvane::health
