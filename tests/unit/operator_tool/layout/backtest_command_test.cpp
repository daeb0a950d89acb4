#include "companions/detect/replay.h"
#include "tests/unit/operator_tool/layout/commands_world.h"

namespace corvane::ctl {
namespace {

class BacktestCommand : public Commands {
 protected:
  BacktestCommand() {
    history({.policy = "p", .schedule = "s"}, 60);
    insert("DATA_TO_PROCESS", bad_);
  }
  detect::Backtest result(int days) {
    Database opened(database());
    return detect::backtest(opened.connection(), {}, days);
  }
  const TestBackup bad_{.mark = 2, .policy = "p", .schedule = "s", .files = 20, .size_kb = 900};
};

TEST_F(BacktestCommand, Whole) {
  const detect::Backtest five = result(5);
  ASSERT_EQ(five.findings.size(), 1U);
  const Said said = say({"backtest", "5"});
  EXPECT_EQ(said.status, 0) << said.error;
  const std::string severity = words_for(five.findings[0].finding.severity);
  const std::string cause = noun_for(five.findings[0].finding.likeliest_cause());
  EXPECT_EQ(said.out, "Time              " +
                          padded("Severity", std::max<std::size_t>(8, severity.size()), false) +
                          "  Client  Policy  Schedule  " + padded("Cause", cause.size(), false) +
                          "  Key\n2023-11-14 22:13  " + padded(severity, 8, false) +
                          "  web01   p       s         " + padded(cause, 10, false) + "  " +
                          key_of(bad_) + "\n\n" + detect::totals_of(five));
}

TEST_F(BacktestCommand, WithoutFindingsTheTotalsAlone) {
  sql("DELETE FROM DATA_TO_PROCESS");
  EXPECT_EQ(say({"backtest", "5"}).out, detect::totals_of(result(5)));
}

TEST_F(BacktestCommand, AsJson) {
  const JsonPtr root = json({"backtest", "5"});
  EXPECT_EQ(number(root.get(), {"judged"}), 5);
  EXPECT_EQ(number(root.get(), {"days"}), 5);
  EXPECT_EQ(json_array_size(json_object_get(root.get(), "anomalies")), 1U);
  EXPECT_EQ(number(json({"backtest", "7"}).get(), {"judged"}), 7);
}

TEST_F(BacktestCommand, GoesByTheConfiguration) {
  configure("[ANOMALY_MODEL_SETTINGS]\nMIN_OBSERVATIONS_FOR_TRAINING=100\n");
  const JsonPtr root = json({"backtest", "5"});
  EXPECT_EQ(number(root.get(), {"learning"}), 5);
  EXPECT_EQ(json_array_size(json_object_get(root.get(), "anomalies")), 0U);
}

TEST_F(BacktestCommand, Colours) {
  Options options;
  options.days = 5;
  EXPECT_NE(in_colour(run_backtest, options).find("\x1B[31mcritical\x1B[0m"), std::string::npos)
      << in_colour(run_backtest, options);
}

class BacktestTable : public Commands {};

TEST_F(BacktestTable, WhatFitsTheTerminal) {
  const std::string name(30, 'n');
  const TestBackup normal{.client = name, .policy = name, .schedule = name};
  history(normal, 60);
  TestBackup bad = normal;
  bad.mark = 2;
  bad.files = 20;
  bad.size_kb = 900;
  insert("DATA_TO_PROCESS", bad);
  Options options;
  options.days = 1;
  EXPECT_EQ(titles_by_width(run_backtest, options), R"(1: Time              Client      Cause
50: Time              Severity  Client      Cause
60: Time              Severity  Client      Policy    Cause
70: Time              Severity  Client      Policy    Schedule  Cause
92: Time              Severity  Client      Policy    Schedule  Cause       Key
)");
}

}  // namespace
}  // namespace corvane::ctl
