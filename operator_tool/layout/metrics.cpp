#include "operator_tool/layout/metrics.h"

#include <prometheus/text_serializer.h>

#include <algorithm>
#include <array>
#include <map>
#include <sstream>
#include <utility>

#include "health/problems.h"
#include "operator_tool/ask/anomalies.h"
#include "operator_tool/terminal/terminal.h"
#include "platform/program_names.h"

namespace corvane::ctl {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;

using Labels = std::vector<ClientMetric::Label>;

class Families {
 public:
  // A gauge, to be given its values.
  void begin(const char* name, const char* help) {
    all_.push_back({name, help, prometheus::MetricType::Gauge, {}});
  }
  template <typename Number>
  void add(Number value, const Labels& labels = {}) {
    ClientMetric metric;
    metric.label = labels;
    metric.gauge.value = static_cast<double>(value);
    all_.back().metric.push_back(metric);
  }
  template <typename Number>
  void single(const char* name, const char* help, Number value) {
    begin(name, help);
    add(value);
  }
  std::vector<MetricFamily> take() { return std::move(all_); }

 private:
  std::vector<MetricFamily> all_;
};

void add_gathers(const health::Health& health, Families& to) {
  const health::GatherTimes& gather = health.gather;
  if (gather.last > 0) {
    to.single("cvanomaly_last_gather_timestamp_seconds",
              "Start of the last gather, in seconds since the epoch.", gather.last);
    to.single("cvanomaly_gather_lag_seconds", "Seconds since the last gather began.",
              health.now - gather.last);
  }
  if (gather.log.last_seconds >= 0) {
    to.single("cvanomaly_gather_duration_seconds", "Duration of the last live gather.",
              gather.log.last_seconds);
  }
  if (gather.log.from > 0) {
    to.single("cvanomaly_gather_failures",
              "Live gathers of the last 24 hours that did not complete.", gather.log.failed);
  }
  to.single("cvanomaly_queued_jobs", "Running jobs that the next gather checks again.",
            gather.queued);
}

void add_records(const Measured& measured, Families& to) {
  to.begin("cvanomaly_records", "Rows of each table of the anomaly database.");
  const StreamSurvey& survey = measured.picture.streams;
  to.add(survey.history_rows, {{"table", "HIST_DATA"}});
  to.add(survey.process_rows, {{"table", "DATA_TO_PROCESS"}});
  to.add(measured.picture.anomalies.size(), {{"table", "ANOMALY_DATA"}});
  to.add(measured.feedback_rows, {{"table", "ANOMALY_DATA_FEEDBACK"}});
  to.single("cvanomaly_rows_waiting", "Backups waiting for the detection.", survey.waiting_rows);
  to.begin("cvanomaly_streams", "Streams of backups by state.");
  for (const StreamState state :
       {StreamState::kLearning, StreamState::kJudged, StreamState::kDormant}) {
    to.add(survey.count(state), {{"state", name_of(state)}});
  }
}

void add_anomalies(const Measured& measured, Families& to) {
  constexpr std::array kReviews{Review::kNotReviewed, Review::kConfirmed, Review::kFalsePositive};
  constexpr std::array kSeverities{Severity::kWarning, Severity::kMajor, Severity::kCritical};
  std::map<std::pair<Severity, Review>, int> counts;
  for (const Anomaly& anomaly : measured.picture.anomalies) {
    ++counts[{anomaly.finding.severity, anomaly.review()}];
  }
  to.begin("cvanomaly_anomalies",
           "Anomalies by severity (1 warning, 2 major, 3 critical) and review.");
  for (const Severity severity : kSeverities) {
    for (const Review review : kReviews) {
      to.add(counts[{severity, review}],
             {{"severity", std::to_string(number_of(severity))}, {"state", name_of(review)}});
    }
  }
  const std::int64_t wrong = measured.picture.count(Review::kFalsePositive);
  const std::int64_t judged = wrong + measured.picture.count(Review::kConfirmed);
  if (judged > 0) {
    to.single("cvanomaly_false_positive_ratio",
              "Share of the reviewed anomalies that are false positives, 0 to 1.",
              static_cast<double>(wrong) / static_cast<double>(judged));
  }
}

void add_alerts(const health::AlertHealth& alerts, Families& to) {
  if (!alerts.is_known || !alerts.trouble.empty()) return;
  if (!alerts.channels.empty()) {
    to.begin("cvanomaly_alerts_waiting", "Pending messages of a channel.");
    for (const alert::ChannelStatus& channel : alerts.channels) {
      to.add(channel.waiting, {{"channel", safe(channel.name)}});
    }
  }
  to.single("cvanomaly_alerts_dead", "Dead letters: messages that could not be delivered.",
            alerts.given_up());
}

std::int64_t age(const health::Health& health, std::int64_t since) {
  return since == 0 ? 0 : std::max<std::int64_t>(health.now - since, 0);
}

void add_problems(const std::vector<health::Problem>& problems, Families& to) {
  to.begin("cvanomaly_health_problems", "Problems that cvanomalyctl check finds, by level.");
  for (const health::Level level : {health::Level::kWarning, health::Level::kCritical}) {
    to.add(std::ranges::count(problems, level, &health::Problem::level),
           {{"level", name_of(level)}});
  }
}

void add_ledger(const health::Health& health, Families& to) {
  if (const std::int64_t look = health.ledger.last_look; look > 0) {
    to.single("cvanomaly_last_look_timestamp_seconds",
              "Last look of cvanomalyheal, in seconds since the epoch.", look);
    to.single("cvanomaly_holes_seconds",
              "Length of all holes (time that was not gathered), in seconds.",
              health.ledger.holes_seconds());
    to.single("cvanomaly_missing_backups",
              "Backups that the master server has and the database does not have.",
              health.ledger.missing.size());
    to.single("cvanomaly_last_heal_timestamp_seconds",
              "When a part of the holes or missing backups was healed last, in seconds since the "
              "epoch; 0: never.",
              health.ledger.healed_at);
    to.single("cvanomaly_given_up_backups",
              "Missing backups that were given up and are not looked for any more.",
              health.ledger.given_up);
    to.single("cvanomaly_lost_ranges",
              "Lost ranges: parts of holes that are not tried as a whole any more.",
              health.ledger.lost.size());
    to.single("cvanomaly_gathers_failed_in_a_row", "Live gathers in a row that failed.",
              health.ledger.gathers.failed_in_a_row);
    to.single("cvanomaly_oldest_unjudged_seconds",
              "Seconds that the first backup waiting for the detection has been first.",
              age(health, health.ledger.unjudged_since));
    to.single("cvanomaly_unaudited_seconds",
              "Seconds that stored backups have not been compared with the master server's.",
              age(health, health.ledger.unaudited_since));
  }
}

void add_machine(const health::Health& health, Families& to) {
  to.begin("cvanomaly_process_up", "1 if the program is running, otherwise 0.");
  for (const health::Daemon& daemon : health.daemons) {
    to.add(daemon.process != 0 ? 1 : 0, {{"process", daemon.name}});
  }
  to.begin("cvanomaly_process_wanted",
           "1 if the program is enabled in the configuration, otherwise 0.");
  for (const health::Daemon& daemon : health.daemons) {
    to.add(daemon.is_wanted ? 1 : 0, {{"process", daemon.name}});
  }
  to.single("cvanomaly_database_size_bytes",
            "Size of the anomaly database with its write-ahead log.", health.database_bytes);
  to.begin("cvanomaly_log_size_bytes", "Size of the program's log file.");
  for (const health::Daemon& daemon : health.daemons)
    to.add(daemon.log_bytes, {{"program", daemon.name}});
  to.begin("cvanomaly_last_pass_timestamp_seconds",
           "End of the companion's last pass, in seconds since the epoch; 0: none is known.");
  for (const health::Daemon& daemon : health.daemons) {
    if (daemon.name != kManagementProgram) to.add(daemon.last_pass, {{"process", daemon.name}});
  }
}

}  // namespace

Measured measure(const Options& options, health::Database& database) {
  Measured measured;
  measured.health = health::look(options.places(), database);
  measured.picture = take_picture(database.connection(), measured.health.configured.detect.stream,
                                  measured.health.now);
  measured.feedback_rows = count_feedback(database.connection());
  return measured;
}

std::vector<MetricFamily> metrics_of(const Measured& measured) {
  Families families;
  add_gathers(measured.health, families);
  add_records(measured, families);
  add_anomalies(measured, families);
  add_alerts(measured.health.alerts, families);
  add_machine(measured.health, families);
  add_problems(problems_of(measured.health), families);
  add_ledger(measured.health, families);
  families.single("cvanomaly_oldest_unprocessed_seconds",
                  "Seconds since the detection of the oldest anomaly that is not processed.",
                  age(measured.health, measured.health.backlog.oldest_unprocessed));
  return families.take();
}

std::vector<MetricFamily> metrics_without_database(const health::Health& health,
                                                   const CheckResult& result) {
  std::vector<health::Problem> problems = problems_of(health);
  problems.insert(problems.end(), result.problems.begin(), result.problems.end());
  Families families;
  add_alerts(health.alerts, families);
  add_machine(health, families);
  add_problems(problems, families);
  add_ledger(health, families);
  return families.take();
}

std::string prometheus_text(const std::vector<MetricFamily>& families) {
  std::ostringstream out;
  prometheus::TextSerializer().Serialize(out, families);
  return out.str();
}

}  // namespace corvane::ctl
