#include "service/logging_setup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/fakes/platform_fake_test.h"

namespace {

using corvane::fake::LogOpening;
using ::testing::ElementsAre;

class LoggingSetupTest : public PlatformFake {};

TEST_F(LoggingSetupTest, OpensTheLogAndKeepsItsDescriptor) {
  EXPECT_EQ(SetupLogging(), 0);
  EXPECT_EQ(debugFD, 33);
  EXPECT_THAT(fake.log_openings, ElementsAre(LogOpening{"/usr/tessel/corvane/logs", "cvanomalymgmt",
                                                        "cvanomalymgmt", 0644}));
}

TEST_F(LoggingSetupTest, FailureIsSaidOnStandardError) {
  fake.log_status = -1;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_EQ(SetupLogging(), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Failed to setup logging at [/usr/tessel/corvane/logs/cvanomalymgmt]\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(debugFD, -1);
}

}  // namespace
