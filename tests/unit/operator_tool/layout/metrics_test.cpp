#include "operator_tool/layout/metrics.h"

#include "tests/unit/operator_tool/layout/known_values.h"
#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::ctl {
namespace {

std::string text_of(const Measured& measured) { return prometheus_text(metrics_of(measured)); }

Measured known() { return {known_health(), known_picture(), 89}; }

constexpr char kGathers[] =
    "# HELP cvanomaly_last_gather_timestamp_seconds Start of the last gather, in seconds since the "
    "epoch.\n"
    "# TYPE cvanomaly_last_gather_timestamp_seconds gauge\n"
    "cvanomaly_last_gather_timestamp_seconds 1699999400\n"
    "# HELP cvanomaly_gather_lag_seconds Seconds since the last gather began.\n"
    "# TYPE cvanomaly_gather_lag_seconds gauge\n"
    "cvanomaly_gather_lag_seconds 600\n"
    "# HELP cvanomaly_gather_duration_seconds Duration of the last live gather.\n"
    "# TYPE cvanomaly_gather_duration_seconds gauge\n"
    "cvanomaly_gather_duration_seconds 9\n"
    "# HELP cvanomaly_gather_failures Live gathers of the last 24 hours that did not complete.\n"
    "# TYPE cvanomaly_gather_failures gauge\n"
    "cvanomaly_gather_failures 4\n"
    "# HELP cvanomaly_queued_jobs Running jobs that the next gather checks again.\n"
    "# TYPE cvanomaly_queued_jobs gauge\n"
    "cvanomaly_queued_jobs 12\n";
constexpr char kRecords[] =
    "# HELP cvanomaly_records Rows of each table of the anomaly database.\n"
    "# TYPE cvanomaly_records gauge\n"
    "cvanomaly_records{table=\"HIST_DATA\"} 1234\n"
    "cvanomaly_records{table=\"DATA_TO_PROCESS\"} 56\n"
    "cvanomaly_records{table=\"ANOMALY_DATA\"} 9\n"
    "cvanomaly_records{table=\"ANOMALY_DATA_FEEDBACK\"} 89\n"
    "# HELP cvanomaly_rows_waiting Backups waiting for the detection.\n"
    "# TYPE cvanomaly_rows_waiting gauge\n"
    "cvanomaly_rows_waiting 7\n"
    "# HELP cvanomaly_streams Streams of backups by state.\n"
    "# TYPE cvanomaly_streams gauge\n"
    "cvanomaly_streams{state=\"learning\"} 1\n"
    "cvanomaly_streams{state=\"judged\"} 2\n"
    "cvanomaly_streams{state=\"dormant\"} 3\n";
constexpr char kAnomalies[] =
    "# HELP cvanomaly_anomalies Anomalies by severity (1 warning, 2 major, 3 critical) and "
    "review.\n"
    "# TYPE cvanomaly_anomalies gauge\n"
    "cvanomaly_anomalies{severity=\"1\",state=\"open\"} 0\n"
    "cvanomaly_anomalies{severity=\"1\",state=\"confirmed\"} 0\n"
    "cvanomaly_anomalies{severity=\"1\",state=\"false_positive\"} 1\n"
    "cvanomaly_anomalies{severity=\"2\",state=\"open\"} 0\n"
    "cvanomaly_anomalies{severity=\"2\",state=\"confirmed\"} 2\n"
    "cvanomaly_anomalies{severity=\"2\",state=\"false_positive\"} 0\n"
    "cvanomaly_anomalies{severity=\"3\",state=\"open\"} 4\n"
    "cvanomaly_anomalies{severity=\"3\",state=\"confirmed\"} 0\n"
    "cvanomaly_anomalies{severity=\"3\",state=\"false_positive\"} 2\n"
    "# HELP cvanomaly_false_positive_ratio Share of the reviewed anomalies that are false "
    "positives, 0 to 1.\n"
    "# TYPE cvanomaly_false_positive_ratio gauge\n"
    "cvanomaly_false_positive_ratio 0.6\n";
constexpr char kAlerts[] =
    "# HELP cvanomaly_alerts_waiting Pending messages of a channel.\n"
    "# TYPE cvanomaly_alerts_waiting gauge\n"
    "cvanomaly_alerts_waiting{channel=\"mail\"} 11\n"
    "cvanomaly_alerts_waiting{channel=\"web\"} 31\n"
    "# HELP cvanomaly_alerts_dead Dead letters: messages that could not be delivered.\n"
    "# TYPE cvanomaly_alerts_dead gauge\n"
    "cvanomaly_alerts_dead 46\n";
constexpr char kMachine[] =
    "# HELP cvanomaly_process_up 1 if the program is running, otherwise 0.\n"
    "# TYPE cvanomaly_process_up gauge\n"
    "cvanomaly_process_up{process=\"cvanomalymgmt\"} 1\n"
    "cvanomaly_process_up{process=\"cvanomalydetect\"} 1\n"
    "cvanomaly_process_up{process=\"cvanomalyalert\"} 0\n"
    "# HELP cvanomaly_process_wanted 1 if the program is enabled in the configuration, otherwise "
    "0.\n"
    "# TYPE cvanomaly_process_wanted gauge\n"
    "cvanomaly_process_wanted{process=\"cvanomalymgmt\"} 1\n"
    "cvanomaly_process_wanted{process=\"cvanomalydetect\"} 0\n"
    "cvanomaly_process_wanted{process=\"cvanomalyalert\"} 1\n"
    "# HELP cvanomaly_database_size_bytes Size of the anomaly database with its write-ahead log.\n"
    "# TYPE cvanomaly_database_size_bytes gauge\n"
    "cvanomaly_database_size_bytes 943718400\n"
    "# HELP cvanomaly_log_size_bytes Size of the program's log file.\n"
    "# TYPE cvanomaly_log_size_bytes gauge\n"
    "cvanomaly_log_size_bytes{program=\"cvanomalymgmt\"} 501\n"
    "cvanomaly_log_size_bytes{program=\"cvanomalydetect\"} 502\n"
    "cvanomaly_log_size_bytes{program=\"cvanomalyalert\"} 503\n"
    "# HELP cvanomaly_last_pass_timestamp_seconds End of the companion's last pass, in seconds "
    "since "
    "the epoch; 0: none is known.\n"
    "# TYPE cvanomaly_last_pass_timestamp_seconds gauge\n"
    "cvanomaly_last_pass_timestamp_seconds{process=\"cvanomalydetect\"} 1699999967\n"
    "cvanomaly_last_pass_timestamp_seconds{process=\"cvanomalyalert\"} 1699999956\n";

constexpr char kProblems[] =
    "# HELP cvanomaly_health_problems Problems that cvanomalyctl check finds, by level.\n"
    "# TYPE cvanomaly_health_problems gauge\n"
    "cvanomaly_health_problems{level=\"warning\"} 5\n"
    "cvanomaly_health_problems{level=\"critical\"} 3\n";
constexpr char kLooks[] =
    "# HELP cvanomaly_last_look_timestamp_seconds Last look of cvanomalyheal, in seconds since "
    "the epoch.\n"
    "# TYPE cvanomaly_last_look_timestamp_seconds gauge\n"
    "cvanomaly_last_look_timestamp_seconds 1699999880\n"
    "# HELP cvanomaly_holes_seconds Length of all holes (time that was not gathered), in seconds.\n"
    "# TYPE cvanomaly_holes_seconds gauge\n"
    "cvanomaly_holes_seconds 1500\n"
    "# HELP cvanomaly_missing_backups Backups that the master server has and the database does not "
    "have.\n"
    "# TYPE cvanomaly_missing_backups gauge\n"
    "cvanomaly_missing_backups 1\n"
    "# HELP cvanomaly_last_heal_timestamp_seconds When a part of the holes or missing backups was "
    "healed last, in seconds since the epoch; 0: never.\n"
    "# TYPE cvanomaly_last_heal_timestamp_seconds gauge\n"
    "cvanomaly_last_heal_timestamp_seconds 1699996000\n"
    "# HELP cvanomaly_given_up_backups Missing backups that were given up and are not looked for "
    "any more.\n"
    "# TYPE cvanomaly_given_up_backups gauge\n"
    "cvanomaly_given_up_backups 3\n"
    "# HELP cvanomaly_lost_ranges Lost ranges: parts of holes that are not tried as a whole any "
    "more.\n"
    "# TYPE cvanomaly_lost_ranges gauge\n"
    "cvanomaly_lost_ranges 4\n"
    "# HELP cvanomaly_gathers_failed_in_a_row Live gathers in a row that failed.\n"
    "# TYPE cvanomaly_gathers_failed_in_a_row gauge\n"
    "cvanomaly_gathers_failed_in_a_row 2\n"
    "# HELP cvanomaly_oldest_unjudged_seconds Seconds that the first backup waiting for the "
    "detection has been first.\n"
    "# TYPE cvanomaly_oldest_unjudged_seconds gauge\n"
    "cvanomaly_oldest_unjudged_seconds 77\n"
    "# HELP cvanomaly_unaudited_seconds Seconds that stored backups have not been compared with "
    "the "
    "master server's.\n"
    "# TYPE cvanomaly_unaudited_seconds gauge\n"
    "cvanomaly_unaudited_seconds 89\n";
constexpr char kUnprocessed[] =
    "# HELP cvanomaly_oldest_unprocessed_seconds Seconds since the detection of the oldest anomaly "
    "that is not processed.\n"
    "# TYPE cvanomaly_oldest_unprocessed_seconds gauge\n"
    "cvanomaly_oldest_unprocessed_seconds 88\n";

TEST(Metrics, Whole) {
  Measured measured = known();
  // Three critical problems, of which one is not in known_health(), and two warnings.
  measured.health.gather.last = kNow - 600;
  measured.health.configured.purge_months = 0;
  EXPECT_EQ(text_of(measured), std::string(kGathers) + kRecords + kAnomalies + kAlerts + kMachine +
                                   kProblems + kLooks + kUnprocessed);
}

// Of the database's own figures there are none, rather than zeros.
TEST(Metrics, WithoutTheDatabaseTheRestIsKnown) {
  Health health = known_health();
  health.has_database = false;
  // Two warnings and two critical problems are those of known_health().
  std::string problems = kProblems;
  EXPECT_EQ(prometheus_text(metrics_without_database(
                health, without_database("database_damaged", "It is damaged."))),
            std::string(kAlerts) + kMachine + problems + kLooks);
  EXPECT_EQ(prometheus_text(metrics_without_database(health, unknown("It is locked."))),
            std::string(kAlerts) + kMachine + problems + kLooks);
}

TEST(Metrics, WithoutALedgerNothingOfItIsKnown) {
  Measured measured = known();
  measured.health.ledger = {};
  measured.health.backlog = {};
  const std::string text = text_of(measured);
  EXPECT_EQ(text.find("holes"), std::string::npos);
  EXPECT_EQ(text.find("last_look"), std::string::npos);
  EXPECT_NE(text.find("cvanomaly_oldest_unprocessed_seconds 0\n"), std::string::npos);
  measured.health.ledger.last_look = 1;
  measured.health.ledger.unjudged_since = kNow + 5;  // another clock's
  EXPECT_NE(text_of(measured).find("cvanomaly_oldest_unjudged_seconds 0\n"), std::string::npos);
}

// Whether the metric has a value.
bool has(const Measured& measured, const std::string& name) {
  return text_of(measured).find("\ncvanomaly_" + name) != std::string::npos;
}

TEST(Metrics, LeaveOutWhatIsUnknown) {
  Measured measured = known();
  measured.health.gather.last = 1;
  EXPECT_TRUE(has(measured, "gather_lag"));
  measured.health.gather.last = 0;
  EXPECT_FALSE(has(measured, "gather_lag"));
  EXPECT_FALSE(has(measured, "last_gather"));
  measured.health.gather.log.last_seconds = 0;
  EXPECT_TRUE(has(measured, "gather_duration_seconds 0"));
  measured.health.gather.log.last_seconds = -1;
  EXPECT_FALSE(has(measured, "gather_duration"));
  measured.health.gather.log.from = 1;
  EXPECT_TRUE(has(measured, "gather_failures"));
  measured.health.gather.log.from = 0;
  EXPECT_FALSE(has(measured, "gather_failures"));
  EXPECT_TRUE(has(measured, "queued_jobs 12"));
}

TEST(Metrics, OfAlertsThatCannotBeReadNothingIsKnown) {
  Measured measured = known();
  measured.health.alerts.trouble = "damaged";
  EXPECT_FALSE(has(measured, "alerts"));
  measured.health.alerts.trouble.clear();
  measured.health.alerts.is_known = false;
  EXPECT_FALSE(has(measured, "alerts"));
  measured.health.alerts.is_known = true;
  measured.health.alerts.channels.clear();
  EXPECT_FALSE(has(measured, "alerts_waiting"));
  EXPECT_TRUE(has(measured, "alerts_dead 0"));
  measured.health.alerts.channels = {{.name = "a\x1B[2Jb", .last_error = ""}};
  EXPECT_TRUE(has(measured, "alerts_waiting{channel=\"a [2Jb\"} 0"));
}

TEST(Metrics, ThereIsNoShareOfNothing) {
  Measured measured = known();
  std::vector<Anomaly>& anomalies = measured.picture.anomalies;
  anomalies.resize(4);  // nobody has reviewed these
  EXPECT_FALSE(has(measured, "false_positive_ratio"));
  anomalies[0].row.feedback = Feedback::kNoFalsePositive;
  EXPECT_TRUE(has(measured, "false_positive_ratio 0\n"));
  anomalies[0].row.feedback = Feedback::kFalsePositive;
  EXPECT_TRUE(has(measured, "false_positive_ratio 1\n"));
}

class Measure : public OperatorWorld {};

TEST_F(Measure, LooksAtTheDatabaseAndTheConfiguration) {
  configure("[ANOMALY_MODEL_SETTINGS]\nMIN_OBSERVATIONS_FOR_TRAINING=4\n");
  gathered(kNow - 600);
  const TestBackup first;
  history(first, 5);
  history({.client = "db01"}, 3);
  history({.client = "old", .time = kNow - 400 * kDay}, 1);
  anomaly(first, 3, first);
  feedback(first, 1);
  feedback({.client = "purged"}, 0);
  Database opened(database());
  const Measured measured = measure(with_paths(), opened);
  EXPECT_EQ(measured.health.now, kNow);
  EXPECT_EQ(measured.health.gather.last, kNow - 600);
  EXPECT_EQ(measured.picture.streams.count(StreamState::kJudged), 1);
  EXPECT_EQ(measured.picture.streams.count(StreamState::kLearning), 1);
  EXPECT_EQ(measured.picture.streams.count(StreamState::kDormant), 1);
  EXPECT_EQ(measured.picture.count(Review::kFalsePositive), 1);
  EXPECT_EQ(measured.feedback_rows, 2);
}

}  // namespace
}  // namespace corvane::ctl
