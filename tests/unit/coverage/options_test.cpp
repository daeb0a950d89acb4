#include "coverage/options.h"

#include <gtest/gtest.h>

namespace corvane::coverage {
namespace {

using Mode = Options::Mode;

std::string parse(const std::vector<const char*>& arguments, Options& options) {
  options = {};
  return parse_options(static_cast<int>(arguments.size()), arguments.data(), options);
}

TEST(HealOptions, WithoutAnyItLooks) {
  Options options;
  EXPECT_EQ(parse({}, options), "");
  EXPECT_EQ(options.mode, Mode::kLook);
  EXPECT_EQ(options.database_path(), "/usr/tessel/var/global/anomaly_detection/CV_Anomaly.db");
  EXPECT_EQ(options.config_path(), "/usr/tessel/var/global/anomaly_detection/anomaly_config.conf");
  EXPECT_EQ(options.own_file(".lock"),
            "/usr/tessel/var/global/anomaly_detection/CV_Anomaly_Coverage.lock");
}

TEST(HealOptions, NameFiles) {
  Options options;
  EXPECT_EQ(parse({"-database_location", "/d", "-database_file_name", "x", "-config_file", "/c"},
                  options),
            "");
  EXPECT_EQ(options.database_path(), "/d/x");
  EXPECT_EQ(options.config_path(), "/c");
  EXPECT_EQ(options.own_file(".db"), "/d/x_Coverage.db");
}

TEST(HealOptions, NameARange) {
  Options options;
  EXPECT_EQ(parse({"-gather", "0", "2147483647"}, options), "");
  EXPECT_EQ(options.mode, Mode::kGather);
  EXPECT_EQ(options.range, (TimeRange{0, 2147483647}));
  EXPECT_EQ(parse({"-database_location", "/d", "-gather_again", "7", "7"}, options), "");
  EXPECT_EQ(options.mode, Mode::kGatherAgain);
  EXPECT_EQ(parse({"-list_jobs", "7", "8"}, options), "");
  EXPECT_EQ(options.mode, Mode::kListJobs);
  EXPECT_EQ(options.range, (TimeRange{7, 8}));
}

TEST(HealOptions, AskForEverythingAtOnce) {
  Options options;
  EXPECT_EQ(parse({}, options), "");
  EXPECT_FALSE(options.at_once);
  EXPECT_EQ(parse({"-now", "-config_file", "/c"}, options), "");
  EXPECT_TRUE(options.at_once);
  EXPECT_EQ(options.mode, Mode::kLook);
  EXPECT_EQ(options.config_path(), "/c");
}

TEST(HealOptions, NameACompanion) {
  Options options;
  for (const char* companion : {"cvanomalydetect", "cvanomalyalert"}) {
    EXPECT_EQ(parse({"-run", companion}, options), "");
    EXPECT_EQ(options.mode, Mode::kRun);
    EXPECT_EQ(options.companion, companion);
  }
}

TEST(HealOptions, HelpIsAllThatCounts) {
  Options options;
  EXPECT_EQ(parse({"-help", "-nonsense"}, options), "");
  EXPECT_EQ(options.mode, Mode::kHelp);
  EXPECT_EQ(parse({"-h"}, options), "");
  EXPECT_EQ(options.mode, Mode::kHelp);
}

TEST(HealOptions, ThatAreWrong) {
  const std::vector<std::pair<std::vector<const char*>, std::string>> cases{
      {{"-x"}, "Unknown option: -x"},
      {{"1"}, "Unknown option: 1"},
      {{"-config_file"}, "Missing value for -config_file"},
      {{"-config_file", ""}, "Invalid value for -config_file: "},
      {{"-gather"}, "-gather needs two times, and is the last option"},
      {{"-gather", "1"}, "-gather needs two times, and is the last option"},
      {{"-gather", "1", "2", "3"}, "-gather needs two times, and is the last option"},
      {{"-gather_again", "1"}, "-gather_again needs two times, and is the last option"},
      {{"-gather", "2", "1"}, "Invalid times: 2 1"},
      {{"-gather", "-1", "1"}, "Invalid times: -1 1"},
      {{"-gather", "1", "2147483648"}, "Invalid times: 1 2147483648"},
      {{"-gather", "1x", "2"}, "Invalid times: 1x 2"},
      {{"-gather", "", "2"}, "Invalid times:  2"},
      {{"-run"}, "-run needs a program, and is the last option"},
      {{"-run", "cvanomalydetect", "x"}, "-run needs a program, and is the last option"},
      {{"-run", "sh"}, "Invalid value for -run: sh"},
  };
  Options options;
  for (const auto& [arguments, wrong] : cases) EXPECT_EQ(parse(arguments, options), wrong);
}

}  // namespace
}  // namespace corvane::coverage
