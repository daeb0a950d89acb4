#include "config/service_values.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "util/wrapping.h"

namespace corvane {
namespace {

TEST(SwitchValue, IsTheNumberThatTheTextBeginsWith) {
  const auto off = [](const std::string& value) {
    return switch_value(setting::kDisableAnomalyDetection, value);
  };
  const auto on = [](const std::string& value) {
    return switch_value(setting::kDisableDetectionService, value);
  };
  EXPECT_EQ(on("0"), 0);
  EXPECT_EQ(off("1"), 1);
  EXPECT_EQ(off("01"), 1);
  EXPECT_EQ(off(" 1"), 1);
  EXPECT_EQ(off("+1 x"), 1);
  EXPECT_EQ(off("-1"), -1);
  EXPECT_EQ(on("on"), 0);
  EXPECT_EQ(off("4294967297"), 1);
}

TEST(SwitchValue, EmptyIsTheDefault) {
  EXPECT_EQ(switch_value(setting::kDisableAnomalyDetection, ""), 0);
  EXPECT_EQ(switch_value(setting::kDisableDetectionService, ""), 1);
  EXPECT_EQ(switch_value(setting::kDisableAlertService, ""), 1);
  EXPECT_EQ(switch_value(setting::kDisableDetectionService, " "), 0);
}

TEST(GatherIntervalMinutes, IsAtLeast15) {
  EXPECT_EQ(gather_interval_minutes("16"), 16);
  EXPECT_EQ(gather_interval_minutes("15"), 15);
  EXPECT_EQ(gather_interval_minutes("14"), 15);
  EXPECT_EQ(gather_interval_minutes("-20"), 15);
  EXPECT_EQ(gather_interval_minutes(""), 15);
  EXPECT_EQ(gather_interval_minutes("an hour"), 15);
  EXPECT_EQ(gather_interval_minutes("60 minutes"), 60);
  EXPECT_EQ(gather_interval_minutes("4294967297"), 15);
}

TEST(GatherIntervalMinutes, AreSecondsThatFitUpToTheirBound) {
  const int most = setting::kGatherFrequency.most;
  EXPECT_EQ(gather_interval_minutes(std::to_string(most)), most);
  EXPECT_EQ(wrapping_multiply(most, 60), std::int64_t{most} * 60);
  EXPECT_NE(wrapping_multiply(most + 1, 60), (std::int64_t{most} + 1) * 60);
}

TEST(PurgeIntervalMonths, AreTheNumberThatTheTextBeginsWithAndAtMost12) {
  const std::vector<std::pair<const char*, int>> cases{
      {"12", 12}, {"13", 12}, {"24", 12},    {"6", 6},          {"6 months", 6},
      {"0", 0},   {"-5", -5}, {"twelve", 0}, {"4294967297", 1}, {"99999999999999999999", -1},
      {" 3", 3},  {" ", 0},   {"1e1", 1}};
  for (const auto& [value, expected] : cases) {
    EXPECT_EQ(purge_interval_months(value), expected) << value;
  }
}

TEST(PurgeIntervalMonths, EmptyIs12) { EXPECT_EQ(purge_interval_months(""), 12); }

TEST(PurgeCutOff, LiesMonthsOf30DaysBack) {
  EXPECT_EQ(purge_cut_off(1'700'000'000, 12), 1'700'000'000 - 12 * 2'592'000);
  EXPECT_EQ(purge_cut_off(1'700'000'000, 1), 1'697'408'000);
}

TEST(PurgeCutOff, IsNowOrLaterWithoutAMonth) {
  EXPECT_EQ(purge_cut_off(1'700'000'000, 0), 1'700'000'000);
  EXPECT_EQ(purge_cut_off(1'700'000'000, -1), 1'702'592'000);
  EXPECT_LT(purge_cut_off(1'700'000'000, -200), 0);  // wraps round
}

}  // namespace
}  // namespace corvane
