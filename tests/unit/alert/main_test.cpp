// The whole program, as far as it can be run without an installed product.
#include <gtest/gtest.h>

#include "companions/alert/options.h"
#include "tests/support/program_run.h"

namespace corvane::alert {
namespace {

TEST(AlertProgram, PrintsItsHelp) {
  EXPECT_EQ(test::program_run(CV_PROGRAM " -help"), std::string(usage()) + "status 0");
}

TEST(AlertProgram, RefusesAnUnknownOption) {
  EXPECT_EQ(test::program_run(CV_PROGRAM " -backwards"),
            "Unknown option: -backwards\n" + std::string(usage()) + "status 2");
}

}  // namespace
}  // namespace corvane::alert
