#include "operator_tool/options.h"

#include "tests/fakes/platform_fake_test.h"
#include "tests/support/scratch_dir.h"

namespace corvane::ctl {
namespace {

class OptionsTest : public PlatformFake {
 protected:
  static Parsed parse(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "cvanomalyctl");
    return parse_options(static_cast<int>(arguments.size()), arguments.data());
  }
  static Options options(const std::vector<const char*>& arguments) {
    const Parsed parsed = parse(arguments);
    EXPECT_EQ(parsed.wrong, "");
    EXPECT_EQ(parsed.help, "");
    return parsed.options;
  }
  static std::string wrong(const std::vector<const char*>& arguments) {
    const Parsed parsed = parse(arguments);
    EXPECT_EQ(parsed.help, "");
    return parsed.wrong;
  }
  test::ScratchDir directory_;
};

TEST_F(OptionsTest, Defaults) {
  fake.install_dir = "/opt/host/";
  const Options found = options({"status"});
  EXPECT_EQ(found.command, Command::kStatus);
  EXPECT_FALSE(found.json);
  EXPECT_FALSE(found.utc);
  EXPECT_FALSE(found.no_colour);
  EXPECT_EQ(found.database, "/opt/host/var/global/anomaly_detection/CV_Anomaly.db");
  EXPECT_EQ(found.config, "/opt/host/var/global/anomaly_detection/anomaly_config.conf");
  EXPECT_EQ(found.logs, "/opt/host/corvane/logs");
  EXPECT_EQ(found.client + found.state + found.id + found.output, "");
  EXPECT_EQ(found.severity, 0);
  EXPECT_EQ(found.days, 0);
  EXPECT_EQ(found.is_reviewed, std::nullopt);
  EXPECT_EQ(found.is_resolved, std::nullopt);
  const health::Thresholds& at = found.thresholds;
  EXPECT_EQ(at.gather_warning, -1);
  EXPECT_EQ(at.gather_critical, -1);
  EXPECT_EQ(at.alerts_warning, 30);
  EXPECT_EQ(at.alerts_critical, 240);
  EXPECT_EQ(at.disk_warning, 10);
  EXPECT_EQ(at.disk_critical, 3);
}

TEST_F(OptionsTest, WithoutAnInstallation) {
  fake.install_dir.reset();
  EXPECT_EQ(options({"status"}).logs, "/usr/tessel/corvane/logs");
}

TEST_F(OptionsTest, GeneralOnesGoBeforeOrBehindTheCommand) {
  const std::string config = directory_("x.conf");
  test::write_file(config, "");
  const std::vector<const char*> general{"--json",       "--utc",   "--no-color",
                                         "--database",   "/d/a.db", "--config",
                                         config.c_str(), "--logs",  "/l"};
  for (const bool before : {true, false}) {
    std::vector<const char*> all = general;
    all.insert(before ? all.end() : all.begin(), "streams");
    const Options found = options(all);
    EXPECT_EQ(found.command, Command::kStreams);
    EXPECT_TRUE(found.json);
    EXPECT_TRUE(found.utc);
    EXPECT_TRUE(found.no_colour);
    EXPECT_EQ(found.database, "/d/a.db");
    EXPECT_EQ(found.config, config);
    EXPECT_EQ(found.logs, "/l");
  }
  EXPECT_EQ(options({"status", "--database", "/d/a.db"}).config, "/d/anomaly_config.conf");
  EXPECT_EQ(options({"status", "--database", "a.db"}).config, "anomaly_config.conf");
}

TEST_F(OptionsTest, EachFlagIsItsOwn) {
  EXPECT_FALSE(options({"status", "--json"}).utc);
  EXPECT_FALSE(options({"status", "--utc"}).no_colour);
  EXPECT_FALSE(options({"status", "--no-color"}).json);
}

TEST_F(OptionsTest, Commands) {
  EXPECT_EQ(options({"anomalies"}).command, Command::kAnomalies);
  EXPECT_EQ(options({"show", "x"}).command, Command::kShow);
  EXPECT_EQ(options({"show", "x"}).id, "x");
  EXPECT_EQ(options({"explain", "y"}).command, Command::kExplain);
  EXPECT_EQ(options({"explain", "y"}).id, "y");
  EXPECT_EQ(options({"backtest", "9"}).command, Command::kBacktest);
  EXPECT_EQ(options({"backtest", "9"}).days, 9);
  EXPECT_EQ(options({"check"}).command, Command::kCheck);
  EXPECT_EQ(options({"metrics"}).command, Command::kMetrics);
  EXPECT_EQ(options({"metrics", "--output", "/o"}).output, "/o");
  EXPECT_EQ(options({"report", "--html", "/h"}).command, Command::kReport);
  EXPECT_EQ(options({"report", "--html", "/h", "--days", "8"}).output, "/h");
  EXPECT_EQ(options({"report", "--html", "/h", "--days", "8"}).days, 8);
}

TEST_F(OptionsTest, HealAndGather) {
  EXPECT_EQ(options({"heal"}).command, Command::kHeal);
  const std::vector<const char*> all{"gather", "--from",           "2023-11-14",
                                     "--to",   "2023-11-14 22:13", "--utc"};
  const Options gather = options(all);
  EXPECT_EQ(gather.command, Command::kGather);
  EXPECT_EQ(gather.from, 1699920000);
  EXPECT_EQ(gather.to, 1699999980);
}

TEST_F(OptionsTest, ARangeNeedsTwoTimesInOrder) {
  const auto range = [](const char* from, const char* to) {
    return wrong({"gather", "--utc", "--from", from, "--to", to});
  };
  EXPECT_EQ(wrong({"gather", "--from", "2023-11-14"}), "--to is required");
  EXPECT_EQ(wrong({"gather", "--to", "2023-11-14"}), "--from is required");
  EXPECT_EQ(range("noon", "2023-11-14"), "--from: 'noon' is not a time like 2026-11-20 08:00");
  EXPECT_EQ(range("2023-11-14", "x"), "--to: 'x' is not a time like 2026-11-20 08:00");
  EXPECT_EQ(range("2023-11-14", "2023-11-13"), "--to is before --from");
  EXPECT_EQ(range("2023-11-14", "2023-11-14"), "");
}

TEST_F(OptionsTest, Lists) {
  const Options streams = options({"streams", "--client", "c", "--state", "dormant"});
  EXPECT_EQ(streams.client, "c");
  EXPECT_EQ(streams.state, "dormant");
  const Options anomalies =
      options({"anomalies", "--client", "d", "--severity", "2", "--days", "7"});
  EXPECT_EQ(anomalies.client, "d");
  EXPECT_EQ(anomalies.severity, 2);
  EXPECT_EQ(anomalies.days, 7);
}

TEST_F(OptionsTest, ReviewAndIncidentUnderPresentAndFormerNames) {
  for (const char* name : {"--not-reviewed", "--open"}) {
    EXPECT_EQ(options({"anomalies", name}).is_reviewed, false) << name;
    EXPECT_EQ(options({"anomalies", name}).is_resolved, std::nullopt) << name;
    for (const char* other : {"--reviewed", "--judged"}) {
      EXPECT_EQ(options({"anomalies", other}).is_reviewed, true) << other;
      EXPECT_EQ(options({"anomalies", other}).is_resolved, std::nullopt) << other;
      EXPECT_EQ(wrong({"anomalies", name, other}), std::string(other) + " excludes --not-reviewed");
    }
  }
  for (const char* name : {"--ongoing", "--not-over"}) {
    EXPECT_EQ(options({"anomalies", name}).is_resolved, false) << name;
    EXPECT_EQ(options({"anomalies", name}).is_reviewed, std::nullopt) << name;
    for (const char* other : {"--resolved", "--over"}) {
      EXPECT_EQ(options({"anomalies", other}).is_resolved, true) << other;
      EXPECT_EQ(options({"anomalies", other}).is_reviewed, std::nullopt) << other;
      EXPECT_EQ(wrong({"anomalies", name, other}), std::string(other) + " excludes --ongoing");
    }
  }
  EXPECT_EQ(options({"anomalies", "--client", "--over"}).client, "--over");
}

TEST_F(OptionsTest, Limits) {
  const auto expect_range = [](std::vector<const char*> before, const std::string& name,
                               std::int64_t least, std::int64_t most) {
    for (const std::int64_t value : {least - 1, least, most, most + 1}) {
      const std::string text = std::to_string(value);
      std::vector<const char*> all = before;
      all.push_back(text.c_str());
      const bool fits = value >= least && value <= most;
      EXPECT_EQ(wrong(all), fits ? ""
                                 : name + ": Value " + text + " not in range " +
                                       std::to_string(least) + " to " + std::to_string(most));
    }
  };
  expect_range({"anomalies", "--severity"}, "--severity", 1, 3);
  expect_range({"anomalies", "--days"}, "--days", 1, 36500);
  expect_range({"report", "--html", "x", "--days"}, "--days", 1, 36500);
  for (const char* name :
       {"--gather-warning", "--gather-critical", "--alerts-warning", "--alerts-critical"}) {
    expect_range({"check", name}, name, 0, 1000000);
  }
  expect_range({"check", "--disk-warning"}, "--disk-warning", 0, 100);
  expect_range({"check", "--disk-critical"}, "--disk-critical", 0, 100);
  EXPECT_EQ(wrong({"backtest", "36500"}), "");
  EXPECT_EQ(wrong({"backtest", "36501"}), "DAYS: Value 36501 not in range 1 to 36500");
  EXPECT_EQ(wrong({"backtest", "0"}), "DAYS: Value 0 not in range 1 to 36500");
}

TEST_F(OptionsTest, Thresholds) {
  const health::Thresholds at =
      options({"check", "--gather-warning", "11", "--gather-critical", "12", "--alerts-warning",
               "13", "--alerts-critical", "14", "--disk-warning", "15", "--disk-critical", "16"})
          .thresholds;
  EXPECT_EQ(at.gather_warning, 11);
  EXPECT_EQ(at.gather_critical, 12);
  EXPECT_EQ(at.alerts_warning, 13);
  EXPECT_EQ(at.alerts_critical, 14);
  EXPECT_EQ(at.disk_warning, 15);
  EXPECT_EQ(at.disk_critical, 16);
}

TEST_F(OptionsTest, WhatIsWrong) {
  EXPECT_EQ(wrong({}), "A subcommand is required");
  EXPECT_EQ(wrong({"streams", "--x"}), "The following argument was not expected: --x");
  EXPECT_EQ(wrong({"streams", "--state", "odd"}), "--state: odd not in {learning,judged,dormant}");
  EXPECT_EQ(wrong({"status", "--config", "/none.conf"}),
            "--config: File does not exist: /none.conf");
  EXPECT_EQ(wrong({"show"}), "ID is required");
  EXPECT_EQ(wrong({"explain"}), "UNIQUE_KEY is required");
  EXPECT_EQ(wrong({"backtest"}), "DAYS is required");
  EXPECT_EQ(wrong({"report"}), "--html is required");
}

TEST_F(OptionsTest, WhatIsWrongLeavesCheckAndJson) {
  EXPECT_EQ(parse({"check", "--x"}).options.command, Command::kCheck);
  EXPECT_FALSE(parse({"check", "--x"}).options.json);
  EXPECT_TRUE(parse({"check", "--x", "--json"}).options.json);
  EXPECT_EQ(parse({"streams", "--client", "check", "--x"}).options.command, Command::kStatus);
}

TEST_F(OptionsTest, OtherFiles) {
  Options given;
  given.database = "/d/sub/a.db";
  given.logs = "/logs";
  EXPECT_EQ(given.places().alert_database, "/d/sub/a_Alerts.db");
  EXPECT_EQ(given.places().log_file("cvx"), "/logs/cvx");
  given.database = "CV_Anomaly.db";
  EXPECT_EQ(given.places().alert_database, "./CV_Anomaly_Alerts.db");
}

constexpr char kStatuses[] =
    "\n\nExit status: 0 success, 1 not found, 2 wrong arguments, 3 no database, 4 database "
    "locked,\n5 database from another version, 6 database damaged, 7 permission denied, 8 other "
    "error.\ncheck, status --exit-code: 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN.\n";
constexpr char kHelpLine[] =
    "\nOptions:\n  -h,--help               Print this help message and exit\n";

TEST_F(OptionsTest, Help) {
  EXPECT_EQ(parse({"--help"}).help,
            std::string("Shows the status of backup anomaly detection and the anomalies that it "
                        "found. Only heal and gather change anything.\nUsage: cvanomalyctl "
                        "[OPTIONS] SUBCOMMAND\n") +
                kHelpLine +
                R"(  --json                  Print one JSON document (operator-tool.md describes it)
  --utc                   Show times in UTC instead of local time
  --no-color              Use no colour on a terminal; NO_COLOR does the same
  --database FILE         The anomaly database (default: CV_Anomaly.db of the installed service)
  --config FILE           The configuration file (default: anomaly_config.conf beside the database)
  --logs DIR              The directory of the log files (default: that of the installed service)

Subcommands:
  status                  Status of the service and its companions
  streams                 Streams of backups, and which of them are still learning
  anomalies               Anomalies, newest first
  show                    One anomaly: figures, cause, history of its stream
  explain                 How a backup is judged against the backups before it
  backtest                Judge the backups of the last DAYS days again, in memory
  check                   One line and an exit status for monitoring
  metrics                 Metrics in the Prometheus text format
  report                  Report with charts, as one HTML file
  heal                    Take a look now: gather missed backups, start dead companions
  gather                  Gather the missing backups of a range of time
)" + kStatuses);
  EXPECT_NE(parse({"--x", "streams", "--help"}).help, "");
}

struct CommandHelp {
  const char* command;
  std::string words;    // what it is
  std::string usage;    // what follows OPTIONS
  std::string options;  // after --help
};

std::vector<CommandHelp> helps_of_commands() {
  return {
      {"streams", "Streams of backups, and which of them are still learning", "",
       R"(  --client NAME           Only this client
  --state STATE           Only streams in this state: learning, judged or dormant
)"},
      {"anomalies", "Anomalies, newest first", "",
       R"(  --client NAME           Only this client
  --severity N            Only this severity and above: 1 warning, 2 major, 3 critical
  --days N                Only the last N days
  --not-reviewed          Only anomalies without feedback
  --reviewed              Only anomalies with feedback
  --ongoing               Only anomalies of ongoing incidents
  --resolved              Only anomalies of resolved incidents

)"},
      {"show", "One anomaly: figures, cause, history of its stream",
       " ID\n\nPositionals:\n  ID REQUIRED             ANOMALY_UNIQUE_ID, or UNIQUE_KEY or id of "
       "the backup",
       ""},
      {"explain", "How a backup is judged against the backups before it",
       " UNIQUE_KEY\n\nPositionals:\n  UNIQUE_KEY REQUIRED     UNIQUE_KEY of the backup: an "
       "anomaly's id without anomaly_",
       ""},
      {"backtest", "Judge the backups of the last DAYS days again, in memory",
       " DAYS\n\nPositionals:\n  DAYS REQUIRED           Number of days", ""},
      {"check", "One line and an exit status for monitoring", "",
       R"(  --heartbeat             Call HEARTBEAT_URL of the configuration, with /fail added unless the status is OK or WARNING
  --gather-warning N      WARNING N minutes after the last gather (default: 3 gather intervals)
  --gather-critical N     CRITICAL N minutes after the last gather (default: 12 gather intervals)
  --alerts-warning N=30   WARNING when a message has been pending for N minutes
  --alerts-critical N=240 CRITICAL when a message has been pending for N minutes
  --disk-warning N=10     WARNING at N% or less free on the database's disk
  --disk-critical N=3     CRITICAL at N% or less free on the database's disk
)"},
      {"status", "Status of the service and its companions", "",
       "  --exit-code             Exit with 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN, as check "
       "does\n"},
      {"metrics", "Metrics in the Prometheus text format", "",
       "  --output FILE           Replace this file atomically instead of printing\n"},
      {"report", "Report with charts, as one HTML file", "",
       R"(  --html FILE REQUIRED    The file to write
  --days N                The last N days (default: 30)
)"},
      {"heal", "Take a look now: gather missed backups, start dead companions", "", ""},
      {"gather", "Gather the missing backups of a range of time", "",
       R"(  --from TIME REQUIRED    Backups that ended then or later, for example '2026-11-20 08:00'
  --to TIME REQUIRED      Backups that ended then or earlier; a date alone means 00:00
)"}};
}

TEST_F(OptionsTest, SwitchesOfStatusAndCheck) {
  EXPECT_FALSE(parse({"status"}).options.exit_status);
  EXPECT_TRUE(parse({"status", "--exit-code"}).options.exit_status);
  EXPECT_FALSE(parse({"check"}).options.heartbeat);
  EXPECT_TRUE(parse({"check", "--heartbeat"}).options.heartbeat);
}

TEST_F(OptionsTest, HelpOfCommands) {
  for (const CommandHelp& one : helps_of_commands()) {
    EXPECT_EQ(parse({one.command, "--help"}).help, one.words + "\nUsage: cvanomalyctl " +
                                                       one.command + " [OPTIONS]" + one.usage +
                                                       "\n" + kHelpLine + one.options + kStatuses);
  }
}

}  // namespace
}  // namespace corvane::ctl
