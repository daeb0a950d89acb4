#include "operator_tool/layout/status_command.h"

#include <algorithm>

#include "finding/words.h"
#include "operator_tool/ask/anomalies.h"
#include "operator_tool/commands.h"
#include "operator_tool/layout/health_json.h"
#include "operator_tool/layout/json.h"
#include "operator_tool/terminal/words.h"
#include "platform/program_names.h"

namespace corvane::ctl {

namespace {

std::string number(std::int64_t value) { return number_text(static_cast<double>(value)); }

const char* label_of(const health::Daemon& daemon) {
  if (daemon.name == kDetectionProgram) return "Detection";
  return daemon.name == kAlertProgram ? "Alerts" : "Service";
}

Style style_of(const health::Daemon& daemon) {
  if ((daemon.process != 0) == daemon.is_wanted) return Style::kPlain;
  return Style::kBad;
}

// "running since ..., process 4711", "not running".
std::string words_for(const health::Daemon& daemon, std::int64_t now, bool utc) {
  if (daemon.process == 0) {
    return daemon.is_wanted ? "not running" : "not running, disabled in the configuration";
  }
  std::string words = "running";
  if (daemon.since > 0) {
    words += " since " + time_text(daemon.since, utc) + " (" + span_text(now - daemon.since) + ")";
  }
  words += ", process " + std::to_string(daemon.process);
  if (!daemon.is_wanted) words += ", although disabled in the configuration";
  return words;
}

std::string last_gather_words(const health::Health& health, bool utc) {
  const health::GatherTimes& gather = health.gather;
  if (gather.last == 0) return "none yet: the history has not been gathered";
  std::string words =
      time_text(gather.last, utc) + ", " + span_text(health.now - gather.last) + " ago";
  if (gather.log.last_seconds >= 0) words += "; took " + span_text(gather.log.last_seconds);
  return words;
}

std::string next_gather_words(const health::Health& health, bool utc) {
  if (health.gather.next == 0) return "none while the service is not running";
  if (health.gather.next < health.now) {
    return "was due at " + time_text(health.gather.next, utc) + ": it is late, or running now";
  }
  return "expected at " + time_text(health.gather.next, utc);
}

std::string gathers_words(const health::Health& health, bool utc) {
  const coverage::GatherCounts& log = health.gather.log;
  if (!health.ledger.trouble.empty()) return "unknown";
  if (log.from == 0) return "unknown, none is in the ledger yet";
  std::string words = counted(log.gathers, "gather", "gathers") + " since " +
                      time_text(std::max(log.from, health.now - kDay), utc) + ", " +
                      number(log.failed) + " failed";
  if (log.last_failed > 0) words += ", the last at " + time_text(log.last_failed, utc);
  return words;
}

std::string alerts_words(const health::AlertHealth& alerts, std::int64_t now) {
  if (!alerts.is_known) return "none yet";
  if (!alerts.trouble.empty()) return alerts.trouble;
  std::string words = number(alerts.waiting()) + " pending";
  if (alerts.oldest() > 0) words += ", the oldest for " + span_text(now - alerts.oldest());
  words += "; " + counted(alerts.given_up(), "dead letter", "dead letters");
  for (const alert::ChannelStatus& channel : alerts.channels) {
    if (channel.failures == 0) continue;
    words += "; channel " + channel.name + " fails: " + channel.last_error;
  }
  return words;
}

std::string programs_text(const Terminal& terminal, bool utc, const health::Health& health) {
  std::string text;
  for (const health::Daemon& daemon : health.daemons) {
    text += line(terminal, label_of(daemon), words_for(daemon, health.now, utc), style_of(daemon));
  }
  text += line(terminal, "Last gather", last_gather_words(health, utc));
  text += line(terminal, "Next gather", next_gather_words(health, utc));
  text += line(terminal, "Gathers", gathers_words(health, utc),
               health.gather.log.failed > 0 ? Style::kWarning : Style::kPlain);
  return text + line(terminal, "Queue",
                     counted(health.gather.queued, "running job", "running jobs") +
                         " for the next gather");
}

std::string streams_text(const Terminal& terminal, bool utc, const StreamSurvey& survey) {
  std::string waiting =
      counted(survey.waiting_rows, "backup", "backups") + " waiting for the detection";
  if (survey.oldest_waiting > 0) {
    waiting += ", the oldest from " + time_text(survey.oldest_waiting, utc);
  }
  return line(terminal, "Waiting", waiting) +
         line(terminal, "Streams",
              number(static_cast<std::int64_t>(survey.streams.size())) + ": " +
                  number(survey.count(StreamState::kJudged)) + " judged, " +
                  number(survey.count(StreamState::kLearning)) + " learning, " +
                  number(survey.count(StreamState::kDormant)) + " dormant");
}

Style style_of(CheckStatus status) {
  if (status == CheckStatus::kOk) return Style::kPlain;
  return status == CheckStatus::kWarning ? Style::kWarning : Style::kBad;
}

std::string json_of(const Status& status, const CheckResult& verdict) {
  const JsonPtr root = document("status");
  put(root.get(), "status", name_of(verdict.status));
  put_problems(root.get(), verdict.problems);
  put_health(root.get(), status.health);
  put_survey(root.get(), status.picture.streams);
  put(root.get(), "open_incidents", status.picture.ongoing_incidents());
  JsonPtr anomalies(json_object());
  put(anomalies.get(), "total", std::int64_t{std::ssize(status.picture.anomalies)});
  for (const Review review : {Review::kNotReviewed, Review::kConfirmed, Review::kFalsePositive}) {
    put(anomalies.get(), name_of(review), status.picture.count(review));
  }
  put(root.get(), "anomalies", std::move(anomalies));
  return json_for_terminal(root.get());
}

}  // namespace

CheckResult Status::verdict(const health::Thresholds& thresholds) const {
  CheckResult result = judge(health, thresholds);
  result.incidents = incidents_words(picture);
  return result;
}

std::string text_of(const Status& status, const Options& options, const Terminal& terminal) {
  const health::Health& health = status.health;
  const Picture& picture = status.picture;
  const CheckResult verdict = status.verdict(options.thresholds);
  std::string text = line(terminal, "Status", verdict_of(verdict), style_of(verdict.status));
  text += programs_text(terminal, options.utc, health) +
          streams_text(terminal, options.utc, picture.streams);
  const std::int64_t ongoing = picture.ongoing_incidents();
  text += line(terminal, "Incidents", number(ongoing) + " ongoing",
               ongoing > 0 ? Style::kWarning : Style::kPlain);
  text += line(
      terminal, "Anomalies",
      number(std::ssize(picture.anomalies)) + ": " + number(picture.count(Review::kNotReviewed)) +
          " not reviewed, " + number(picture.count(Review::kConfirmed)) + " confirmed, " +
          counted(picture.count(Review::kFalsePositive), "false positive", "false positives"));
  text += healing_text(terminal, options.utc, health.ledger);
  text += line(terminal, "Messages", alerts_words(health.alerts, health.now),
               health.alerts.given_up() > 0 ? Style::kBad : Style::kPlain);
  return text +
         line(terminal, "Database",
              size_text(static_cast<double>(health.database_bytes) / 1024) + ", " +
                  counted(picture.streams.history_rows, "record", "records") + " of history; " +
                  size_text(static_cast<double>(health.disk.available) / 1024) +
                  " free on its disk; " + options.database);
}

Printed run_status(const Context& context) {
  Status status;
  status.health = health::look(context.options.places(), context.database);
  status.picture = take_picture(context.database.connection(),
                                status.health.configured.detect.stream, status.health.now);
  const CheckResult verdict = status.verdict(context.options.thresholds);
  return {context.options.json ? json_of(status, verdict)
                               : text_of(status, context.options, context.terminal),
          context.options.exit_status ? static_cast<int>(verdict.status) : 0};
}

}  // namespace corvane::ctl
