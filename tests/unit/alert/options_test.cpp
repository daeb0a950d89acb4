#include "companions/alert/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "tests/fakes/platform_fake_test.h"

namespace corvane::alert {
namespace {

using Mode = Options::Mode;

std::string parse(const std::vector<const char*>& arguments, Options& options) {
  options = {};
  return parse_options(static_cast<int>(arguments.size()), arguments.data(), options);
}
std::string parse(const std::vector<const char*>& arguments) {
  Options options;
  return parse(arguments, options);
}

TEST(Options, HaveTheProductsDefaults) {
  Options options;
  EXPECT_EQ(parse({}, options), "");
  EXPECT_EQ(options.mode, Mode::kDaemon);
  EXPECT_EQ(options.database_path(), "/usr/tessel/var/global/anomaly_detection//CV_Anomaly.db");
  EXPECT_EQ(options.config_path(), "/usr/tessel/var/global/anomaly_detection//anomaly_config.conf");
  EXPECT_EQ(options.master, "");
}

TEST(Options, AreTheServicesCommandLine) {
  Options options;
  EXPECT_EQ(parse({"-database_location", "/db/", "-database_file_name", "Other.db", "-master",
                   "m.example.com"},
                  options),
            "");
  EXPECT_EQ(options.mode, Mode::kDaemon);
  EXPECT_EQ(options.database_path(), "/db//Other.db");
  EXPECT_EQ(options.config_path(), "/db//anomaly_config.conf");
  EXPECT_EQ(options.own_file(".dead"), "/db//Other_Alerts.dead");
  EXPECT_EQ(options.master, "m.example.com");
  EXPECT_EQ(parse({"-config_file", "/c"}, options), "");
  EXPECT_EQ(options.config_path(), "/c");
}

TEST(Options, NameFilesBesideADatabaseOfAnyName) {
  Options options;
  options.database_location = "/db";
  for (const auto& [name, own] : {std::pair{"a.db", "/db/a_Alerts.lock"},
                                  {"a.sqlite", "/db/a.sqlite_Alerts.lock"},
                                  {".db", "/db/_Alerts.lock"},
                                  {"db", "/db/db_Alerts.lock"}}) {
    options.database_file_name = name;
    EXPECT_EQ(options.own_file(".lock"), own);
  }
}

TEST(Options, AreWhatPeopleAskFor) {
  for (const auto& [argument, mode] : {std::pair{"-once", Mode::kOnce},
                                       {"-test", Mode::kTest},
                                       {"-status", Mode::kStatus},
                                       {"-resend", Mode::kResend},
                                       {"-help", Mode::kHelp},
                                       {"-h", Mode::kHelp}}) {
    Options options;
    EXPECT_EQ(parse({argument}, options), "");
    EXPECT_EQ(options.mode, mode) << argument;
    EXPECT_EQ(options.test_channel, "");
  }
}

TEST(Options, ATestMayHaveAChannel) {
  Options options;
  for (const char* channel : {"web", "syslog", "webhook", "mail", "command"}) {
    EXPECT_EQ(parse({"-test", channel}, options), "");
    EXPECT_EQ(options.test_channel, channel);
  }
  EXPECT_EQ(parse({"-test", "mail", "-config_file", "/c"}, options), "");
  EXPECT_EQ(options.test_channel, "mail");
  EXPECT_EQ(options.config_file, "/c");
  EXPECT_EQ(parse({"-test", "-config_file", "/c"}, options), "");
  EXPECT_EQ(options.test_channel, "");
  EXPECT_EQ(options.config_file, "/c");
}

TEST(Options, SayWhatIsWrong) {
  EXPECT_EQ(parse({"-test", "pigeon"}), "Unknown channel: pigeon");
  EXPECT_EQ(parse({"-once", "mail"}), "Unknown option: mail");
  EXPECT_EQ(parse({"-once", "-status"}), "Use only one of -once, -test, -status and -resend");
  EXPECT_EQ(parse({"-resend", "-resend"}), "Use only one of -once, -test, -status and -resend");
  EXPECT_EQ(parse({"-nonsense"}), "Unknown option: -nonsense");
  for (const std::string name :
       {"-master", "-config_file", "-database_location", "-database_file_name"}) {
    EXPECT_EQ(parse({"-once", name.c_str()}), "Missing value for " + name);
    EXPECT_EQ(parse({name.c_str(), ""}), "Invalid value for " + name + ": ");
  }
}

TEST(Options, HelpBeatsWhatIsWrongAfterIt) {
  Options options;
  EXPECT_EQ(parse({"-once", "-help", "-nonsense"}, options), "");
  EXPECT_EQ(options.mode, Mode::kHelp);
}

TEST(Options, HelpNamesEveryOption) {
  for (const char* option : {"-database_location", "-database_file_name", "-master", "-config_file",
                             "-once", "-test", "-status", "-resend", "-help"}) {
    EXPECT_THAT(usage(), testing::HasSubstr(std::string("\n  ") + option + " ")) << option;
  }
}

class MasterName : public PlatformFake {};

TEST_F(MasterName, IsTheOption) {
  Options options;
  options.master = "other";
  EXPECT_EQ(master_name(options), "other");
}

TEST_F(MasterName, IsTheProductsOtherwise) {
  fake.servers = {"first.example.com", "second.example.com"};
  EXPECT_EQ(master_name({}), "first.example.com");
  fake.servers = {"only.example.com"};
  EXPECT_EQ(master_name({}), "only.example.com");
}

TEST_F(MasterName, MayBeUnknown) {
  fake.servers = std::vector<std::string>{};
  EXPECT_EQ(master_name({}), "");
  fake.servers.reset();
  EXPECT_EQ(master_name({}), "");
  fake.servers = {"first.example.com"};
  fake.master_record_missing = true;
  EXPECT_EQ(master_name({}), "");
  fake.master_record_missing = false;
  fake.master_config_result = -1;
  EXPECT_EQ(master_name({}), "");
}

}  // namespace
}  // namespace corvane::alert
