// The whole program, as far as it can be run without an installed product.
#include <gtest/gtest.h>

#include "companions/detect/options.h"
#include "tests/support/program_run.h"

namespace corvane::detect {
namespace {

TEST(DetectProgram, PrintsItsHelp) {
  EXPECT_EQ(test::program_run(CV_PROGRAM " -help"), std::string(usage()) + "status 0");
}

TEST(DetectProgram, RefusesAnUnknownOption) {
  EXPECT_EQ(test::program_run(CV_PROGRAM " -backwards"),
            "Unknown option: -backwards\n" + std::string(usage()) + "status 2");
}

}  // namespace
}  // namespace corvane::detect
