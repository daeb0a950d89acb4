#include "coverage/programs.h"

#include <gtest/gtest.h>

namespace corvane::coverage {
namespace {

TEST(IsInServiceUnit, GoesByTheLastPartOfTheControlGroup) {
  EXPECT_TRUE(is_in_service_unit("0::/system.slice/cvanomalymgmt.service\n"));
  EXPECT_TRUE(
      is_in_service_unit("2:cpu:/\n1:name=systemd:/system.slice/cvanomalymgmt.service\n0::/\n"));
  EXPECT_FALSE(is_in_service_unit("0::/system.slice/cvanomaly-heal.service\n"));
  EXPECT_FALSE(is_in_service_unit("0::/system.slice/cvanomalymgmt.service/other\n"));
  EXPECT_FALSE(is_in_service_unit("0::/user.slice/user-0.slice/session-1.scope\n"));
  EXPECT_FALSE(is_in_service_unit(""));
}

}  // namespace
}  // namespace corvane::coverage
