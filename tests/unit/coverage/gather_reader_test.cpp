#include "coverage/gather_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace corvane::coverage {
namespace {

class GatherReaderTest : public testing::Test {
 protected:
  // A record of the service, `seconds` after the hour.
  void says(int seconds, const std::string& text, int level = 2, int process = 7) {
    reader_.read("2026-01-31T04:00:" + std::string(seconds < 10 ? "0" : "") +
                 std::to_string(seconds) + ".789Z " + std::to_string(process) + "d " +
                 std::to_string(level) + " " + text);
  }
  void service(int seconds, const std::string& text, int level = 2) {
    says(seconds, "cvanomalymgmt: " + text, level);
  }
  void history(int seconds, const std::string& text) {
    says(seconds, "ManagementService::do_historical_gather: " + text);
  }
  void begin_history() {
    history(0, "Capturing historical data.");
    history(0, "Capturing data between 1000 & 9000 ");
  }
  void slice(int seconds, const std::string& range) {
    history(seconds, "Capturing data between " + range);
    service(seconds, "Capturing data between " + range);
  }
  void live(const std::string& problem, int level) {
    service(1, "Capturing data between 1000 & 1900 ");
    service(2, problem, level);
    service(3, "Total time taken for live gather 2.");
  }

  static constexpr std::int64_t kHour = 1769832000;  // 2026-01-31T04:00:00Z
  std::vector<Gather> gathers_;
  GatherReader reader_{[this](const Gather& gather) { gathers_.push_back(gather); }};
};

TEST_F(GatherReaderTest, ALiveGather) {
  service(1, "Capturing data between 1000 & 1900 ");
  EXPECT_TRUE(reader_.state().is_open);
  EXPECT_EQ(reader_.state().gather.began, kHour + 1);
  service(2, "3 images found between (start time - end time): 1000 - 1900");
  EXPECT_EQ(reader_.state().gather.ended, kHour + 2);
  EXPECT_TRUE(gathers_.empty());
  service(4, "Total time taken for live gather 3.");
  EXPECT_FALSE(reader_.state().is_open);
  EXPECT_EQ(gathers_, (std::vector<Gather>{{true, 1000, 1900, kHour + 1, kHour + 4}}));
}

TEST_F(GatherReaderTest, WhatIsNotStoredFails) {
  for (const std::string loss :
       {"Could not capture data between 1000 & 1900 ", "Error inserting data: locked",
        "Error inserting data in IMAGE_DATA locked", "Error inserting data in locked",
        "Error occurred while capturing data between 1000 & 1900 ",
        "Failed to gather job information.", "Issue parsing image. Continue with other images.",
        "Error while parsing line {.", "Failed to parse. Details: locked",
        "Could not read all of image.out", "Total images captured = 0"}) {
    gathers_.clear();
    live(loss, 2);
    EXPECT_EQ(
        gathers_,
        (std::vector<Gather>{{true, 1000, 1900, kHour + 1, kHour + 3, Outcome::kFailed, loss}}));
  }
}

TEST_F(GatherReaderTest, OtherErrorsCostNoRecord) {
  for (const std::string problem :
       {"Exception occurred while getting data from backupId: x", "Failed to purge database.",
        "Capturing data for next offset: 100", "Total images captured = 10"}) {
    gathers_.clear();
    live(problem, 16);
    EXPECT_EQ(gathers_, (std::vector<Gather>{{true, 1000, 1900, kHour + 1, kHour + 3}})) << problem;
  }
}

TEST_F(GatherReaderTest, AnEmptyListThatSaysSoIsNoFailure) {
  service(1, "Capturing data between 1000 & 1900 ");
  service(2, "No data received");
  service(2, "Total images captured = 0");
  service(3, "Total time taken for live gather 2.");
  live("Total images captured = 0", 2);
  ASSERT_EQ(gathers_.size(), 2U);
  EXPECT_EQ(gathers_[0].outcome, Outcome::kComplete);
  EXPECT_EQ(gathers_[1].outcome, Outcome::kFailed);
}

TEST_F(GatherReaderTest, TheReasonIsTheFirstError) {
  service(1, "Capturing data between 1000 & 1900 ");
  says(2, "CurlClient::process_curl_response: ", 16);
  reader_.read("\tAPI execution failed. Response Code = 503");
  reader_.read("\tand more of it");
  service(3, "JSON parsing failed for jobs data ", 16);
  service(3, "Could not capture data between 1000 & 1900 ", 16);
  service(4, "Total time taken for live gather 3.");
  ASSERT_EQ(gathers_.size(), 1U);
  EXPECT_EQ(gathers_[0].reason, "API execution failed. Response Code = 503");
  live("Error inserting data: " + std::string(300, 'x'), 16);
  EXPECT_EQ(gathers_[1].reason, "Error inserting data: " + std::string(178, 'x'));
}

TEST_F(GatherReaderTest, TheSecondCertificatesFailureIsOne) {
  for (const auto& [tag, level, outcome] : std::vector<std::tuple<std::string, int, Outcome>>{
           {"CurlClient::execute", 16, Outcome::kFailed},
           {"CurlClient::execute", 8, Outcome::kComplete},
           {"CurlClient::process_curl_response", 16, Outcome::kComplete}}) {
    gathers_.clear();
    service(1, "Capturing data between 1000 & 1900 ");
    says(2, tag + ": ", level);
    reader_.read("\tAPI execution failed. Response Code = 500");
    service(3, "Total time taken for live gather 2.");
    ASSERT_EQ(gathers_.size(), 1U);
    EXPECT_EQ(gathers_[0].outcome, outcome) << tag << level;
    EXPECT_EQ(gathers_[0].reason,
              outcome == Outcome::kFailed ? "API execution failed. Response Code = 500" : "");
  }
}

TEST_F(GatherReaderTest, KnowsTheLastPurge) {
  service(1, "Cleaning records before 1000");
  service(5, "Cleaning records before 1200");
  EXPECT_EQ(reader_.state().purged_before, 1200);
  EXPECT_EQ(reader_.state().purged_at, kHour + 5);
  service(6, "Cleaning records before x");
  EXPECT_EQ(reader_.state().purged_before, 0);
}

TEST_F(GatherReaderTest, KnowsTheIntervalInUse) {
  EXPECT_EQ(reader_.state().interval, 0);
  service(1, "m_data_fetch_interval_in_mins:[20]");
  EXPECT_EQ(reader_.state().interval, 20);
  service(2, "Using gather frequency as 30 mins");
  EXPECT_EQ(reader_.state().interval, 30);
  service(3, "m_data_fetch_interval_in_mins:[x]");
  EXPECT_EQ(reader_.state().interval, 0);
}

TEST_F(GatherReaderTest, AGatherWithoutARangeIsSkipped) {
  service(5, "Total time taken for live gather 0.");
  EXPECT_EQ(gathers_, (std::vector<Gather>{{true, 0, 0, kHour + 5, kHour + 5, Outcome::kSkipped}}));
}

TEST_F(GatherReaderTest, AGatherIsCutByTheNextProcess) {
  service(1, "Capturing data between 1000 & 1900 ");
  service(2, "Executing API with path:  x ");
  says(9, "cvanomalymgmt: Capturing data between 1000 & 2000 ", 2, 8);
  EXPECT_EQ(gathers_,
            (std::vector<Gather>{{true, 1000, 1900, kHour + 1, kHour + 2, Outcome::kCut}}));
  says(10, "cvanomalymgmt: Total time taken for live gather 0.", 2, 8);
  EXPECT_EQ(gathers_[1], (Gather{true, 1000, 2000, kHour + 9, kHour + 10}));
}

TEST_F(GatherReaderTest, AGatherIsCutByAnother) {
  service(1, "Capturing data between 1000 & 1900 ");
  service(2, "Capturing data between 1901 & 2000 ");
  ASSERT_EQ(gathers_.size(), 1U);
  EXPECT_EQ(gathers_[0].outcome, Outcome::kCut);
  EXPECT_EQ(gathers_[0].ended, kHour + 2);
}

TEST_F(GatherReaderTest, ASkippedGatherOfTheNextProcessEndsNoOther) {
  service(1, "Capturing data between 1000 & 1900 ");
  says(9, "cvanomalymgmt: Total time taken for live gather 0.", 2, 8);
  ASSERT_EQ(gathers_.size(), 2U);
  EXPECT_EQ(gathers_[0].outcome, Outcome::kCut);
  EXPECT_EQ(gathers_[1].outcome, Outcome::kSkipped);
}

TEST_F(GatherReaderTest, LinesOfOtherProcessesEndNothing) {
  service(1, "Capturing data between 1000 & 1900 ");
  says(2, "cvanomalymgmt: Successfully stopped the service", 4, 8);
  service(3, "Total time taken for live gather 2.");
  ASSERT_EQ(gathers_.size(), 1U);
  EXPECT_EQ(gathers_[0].outcome, Outcome::kComplete);
}

TEST_F(GatherReaderTest, AHistoryIsGatheredInSlices) {
  begin_history();
  slice(1, "1000 & 4600 ");
  slice(2, "4601 & 8200 ");
  service(3, "Could not capture data between 4601 & 8200 ", 16);
  slice(4, "8201 & 9000 ");
  EXPECT_EQ(gathers_.size(), 2U);
  service(6, "Done capturing historical data.");
  service(7, "Total time taken for historical gather 7.");
  EXPECT_EQ(gathers_,
            (std::vector<Gather>{{false, 1000, 4600, kHour + 1, kHour + 2},
                                 {false, 4601, 8200, kHour + 2, kHour + 4, Outcome::kFailed,
                                  "Could not capture data between 4601 & 8200 "},
                                 {false, 8201, 9000, kHour + 4, kHour + 6}}));
  live("", 2);
  EXPECT_TRUE(gathers_.back().is_live);
}

TEST_F(GatherReaderTest, AStopEndsAHistoryBetweenTwoSlices) {
  begin_history();
  slice(1, "1000 & 4600 ");
  history(2, "something else");
  EXPECT_EQ(gathers_.size(), 0U);
  history(2, "Service has been requested to stop");
  ASSERT_EQ(gathers_.size(), 1U);
  EXPECT_EQ(gathers_[0].outcome, Outcome::kComplete);
  live("", 2);
  EXPECT_TRUE(gathers_.back().is_live);
}

TEST_F(GatherReaderTest, AHistoryThatBeginsAgainCutsItsSlice) {
  begin_history();
  slice(1, "1000 & 4600 ");
  begin_history();
  ASSERT_EQ(gathers_.size(), 1U);
  EXPECT_EQ(gathers_[0].outcome, Outcome::kCut);
  slice(3, "2000 & 5600 ");
  slice(4, "5601 & 9000 ");
  EXPECT_EQ(gathers_[1], (Gather{false, 2000, 5600, kHour + 3, kHour + 4}));
}

TEST_F(GatherReaderTest, ALiveGatherOfTheNextProcessEndsTheHistory) {
  begin_history();
  slice(1, "1000 & 4600 ");
  says(9, "cvanomalymgmt: Capturing data between 1000 & 2000 ", 2, 8);
  EXPECT_EQ(gathers_.at(0).outcome, Outcome::kCut);
  says(10, "cvanomalymgmt: Total time taken for live gather 0.", 2, 8);
  EXPECT_EQ(gathers_.at(1), (Gather{true, 1000, 2000, kHour + 9, kHour + 10}));
}

TEST_F(GatherReaderTest, AHistorysRangeOutsideOfOneIsNone) {
  history(1, "Capturing data between 1000 & 9000 ");
  EXPECT_FALSE(reader_.state().is_open);
}

TEST_F(GatherReaderTest, AnUnreadableRangeFails) {
  for (const std::string range : {"x & 1900 ", "1000 - 1900 ", "1000 & ", ""}) {
    gathers_.clear();
    service(1, "Capturing data between " + range);
    service(3, "Total time taken for live gather 2.");
    ASSERT_EQ(gathers_.size(), 1U);
    EXPECT_EQ(gathers_[0].outcome, Outcome::kFailed) << range;
    EXPECT_EQ(gathers_[0].start, 0);
    EXPECT_EQ(gathers_[0].end, 0);
  }
}

TEST_F(GatherReaderTest, CutsOnlyWhatIsOpen) {
  reader_.cut();
  EXPECT_TRUE(gathers_.empty());
  service(1, "Capturing data between 1000 & 1900 ");
  reader_.cut();
  reader_.cut();
  ASSERT_EQ(gathers_.size(), 1U);
  EXPECT_EQ(gathers_[0].outcome, Outcome::kCut);
}

TEST_F(GatherReaderTest, GoesOnFromAState) {
  service(1, "Capturing data between 1000 & 1900 ");
  GatherReader next([this](const Gather& gather) { gathers_.push_back(gather); }, reader_.state());
  EXPECT_EQ(next.state(), reader_.state());
  next.read("2026-01-31T04:00:03.000Z 7d 2 cvanomalymgmt: Total time taken for live gather 2.");
  EXPECT_EQ(gathers_, (std::vector<Gather>{{true, 1000, 1900, kHour + 1, kHour + 3}}));
}

}  // namespace
}  // namespace corvane::coverage
