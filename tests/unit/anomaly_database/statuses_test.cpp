#include "anomaly_database/statuses.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

// They stand in the databases of installed machines.
TEST(Statuses, AreTheNumbersOfTheirColumns) {
  EXPECT_EQ(static_cast<int>(ProcessedStatus::kWaiting), 0);
  EXPECT_EQ(static_cast<int>(ProcessedStatus::kNormal), 1);
  EXPECT_EQ(static_cast<int>(ProcessedStatus::kAnomalous), 2);
  EXPECT_EQ(kNoCluster, -1);
  EXPECT_EQ(static_cast<int>(GatherMode::kHistorical), 0);
  EXPECT_EQ(static_cast<int>(GatherMode::kLive), 1);
  EXPECT_EQ(static_cast<int>(Feedback::kNoFalsePositive), 0);
  EXPECT_EQ(static_cast<int>(Feedback::kFalsePositive), 1);
  EXPECT_EQ(static_cast<int>(AnomalyStatus::kUnprocessed), 0);
  EXPECT_EQ(static_cast<int>(AnomalyStatus::kProcessed), 1);
}

}  // namespace
}  // namespace corvane
