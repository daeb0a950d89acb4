#include "service/service_stop_exception.h"

#include <gtest/gtest.h>

namespace {

TEST(ServiceStopExceptionTest, CarriesTheInterruptedOperation) {
  try {
    throw ServiceStopException("ManagementService::do_historical_gather");
  } catch (const std::exception& stop) {
    EXPECT_STREQ(stop.what(), "ManagementService::do_historical_gather");
  }
}

}  // namespace
