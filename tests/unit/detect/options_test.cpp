#include "companions/detect/options.h"

#include <gtest/gtest.h>

#include <vector>

namespace corvane::detect {
namespace {

std::string parse(const std::vector<const char*>& arguments, Options& options) {
  options = {};
  return parse_options(static_cast<int>(arguments.size()), arguments.data(), options);
}

TEST(Options, TakesTheServicesCommandLine) {
  Options options;
  EXPECT_EQ(parse({"-database_location", "/db/", "-database_file_name", "a.db", "-eps", "2.25",
                   "-min_samples", "4", "-config_file", "/db/c.conf"},
                  options),
            "");
  EXPECT_EQ(options.mode, Options::Mode::kDaemon);
  EXPECT_EQ(options.database_path(), "/db//a.db");
  EXPECT_EQ(options.eps, 2.25);
  EXPECT_EQ(options.min_samples, 4U);
  EXPECT_EQ(options.config_file, "/db/c.conf");
}

TEST(Options, TakesWhatPeopleAskFor) {
  Options options;
  EXPECT_EQ(parse({"-once"}, options), "");
  EXPECT_EQ(options.mode, Options::Mode::kOnce);
  EXPECT_EQ(parse({"-backtest", "30", "-json"}, options), "");
  EXPECT_EQ(options.mode, Options::Mode::kBacktest);
  EXPECT_EQ(options.backtest_days, 30);
  EXPECT_TRUE(options.json);
  EXPECT_EQ(parse({"-explain", "data_1_a"}, options), "");
  EXPECT_EQ(options.unique_key, "data_1_a");
  EXPECT_EQ(parse({"-help", "-nonsense"}, options), "");
  EXPECT_EQ(options.mode, Options::Mode::kHelp);
}

TEST(Options, RefusesTheRestAndSaysWhy) {
  Options options;
  EXPECT_EQ(parse({"-nonsense"}, options), "Unknown option: -nonsense");
  EXPECT_EQ(parse({"stray"}, options), "Unknown option: stray");
  EXPECT_EQ(parse({"-eps"}, options), "Missing value for -eps");
  for (const char* eps : {"0", "-1", "nan", "inf", "2.5x", "x", ""}) {
    EXPECT_EQ(parse({"-eps", eps}, options), std::string("Invalid value for -eps: ") + eps);
  }
  EXPECT_NE(parse({"-min_samples", "0"}, options), "");
  EXPECT_NE(parse({"-min_samples", "-3"}, options), "");
  EXPECT_NE(parse({"-backtest", "0"}, options), "");
  EXPECT_NE(parse({"-database_location", ""}, options), "");
  EXPECT_NE(parse({"-once", "-explain", "x"}, options), "");
  EXPECT_NE(parse({"-json"}, options), "");
}

}  // namespace
}  // namespace corvane::detect
