#include "companions/detect/options.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
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
  EXPECT_EQ(options.mode, Options::Mode::kExplain);
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
  EXPECT_EQ(parse({"-eps", "1e-9"}, options), "");
  for (const auto& [name, value] : {std::pair("-min_samples", "0"),
                                    {"-min_samples", "-3"},
                                    {"-backtest", "0"},
                                    {"-backtest", "-1"},
                                    {"-backtest", "36501"},
                                    {"-backtest", "x"},
                                    {"-backtest", "3x"},
                                    {"-database_location", ""},
                                    {"-database_file_name", ""},
                                    {"-config_file", ""},
                                    {"-explain", ""}}) {
    EXPECT_EQ(parse({name, value}, options),
              "Invalid value for " + std::string(name) + ": " + value);
    EXPECT_EQ(parse({"-eps", "1", name}, options), "Missing value for " + std::string(name));
  }
  EXPECT_EQ(parse({"-min_samples", "1", "-backtest", "36500"}, options), "");
  EXPECT_EQ(options.min_samples, 1U);
  EXPECT_EQ(options.backtest_days, 36500);
  EXPECT_EQ(parse({"-backtest", "1"}, options), "");
}

TEST(Options, DoOneThingAtATime) {
  Options options;
  const std::string both = "Use only one of -once, -backtest and -explain";
  EXPECT_EQ(parse({"-once", "-explain", "x"}, options), both);
  EXPECT_EQ(parse({"-backtest", "3", "-once"}, options), both);
  EXPECT_EQ(parse({"-explain", "x", "-backtest", "3"}, options), both);
  EXPECT_EQ(parse({"-json"}, options), "-json is only valid with -backtest");
  EXPECT_EQ(parse({"-json", "-explain", "x"}, options), "-json is only valid with -backtest");
  EXPECT_EQ(parse({"-json", "-backtest", "3"}, options), "");
}

TEST(Options, HaveTheProductsDefaults) {
  Options options;
  EXPECT_EQ(parse({}, options), "");
  EXPECT_EQ(options.mode, Options::Mode::kDaemon);
  EXPECT_EQ(options.database_path(), "/usr/tessel/var/global/anomaly_detection//CV_Anomaly.db");
  EXPECT_EQ(options.config_file, "/usr/tessel/var/global/anomaly_detection/anomaly_config.conf");
  EXPECT_EQ(options.eps, 2.5);
  EXPECT_EQ(options.min_samples, 3U);
  EXPECT_EQ(options.backtest_days, 0);
  EXPECT_FALSE(options.json);
  EXPECT_EQ(parse({"-h"}, options), "");
  EXPECT_EQ(options.mode, Options::Mode::kHelp);
  EXPECT_EQ(parse({"-once"}, options), "");
  EXPECT_FALSE(options.json);
}

TEST(Options, AreAllInTheHelp) {
  const std::string help = usage();
  for (const char* name : {"-database_location", "-database_file_name", "-eps", "-min_samples",
                           "-config_file", "-once", "-backtest", "-json", "-explain", "-help"}) {
    EXPECT_NE(help.find(name), std::string::npos) << name;
  }
}

}  // namespace
}  // namespace corvane::detect
