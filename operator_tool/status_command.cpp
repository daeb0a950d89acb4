#include "companions/alert/plain_text.h"
#include "operator_tool/commands.h"
#include "operator_tool/health_json.h"
#include "operator_tool/json.h"
#include "operator_tool/seconds.h"
#include "operator_tool/words.h"

namespace corvane::ctl {

namespace {

struct Found {
  Health health;
  Survey survey;
  std::vector<FoundAnomaly> anomalies;
  std::vector<Incident> incidents;
};

const char* label_of(const Daemon& daemon) {
  if (daemon.name == kDetection) return "Detection";
  return daemon.name == kAlerts ? "Alerts" : "Service";
}

Style style_of(const Daemon& daemon) {
  if ((daemon.process != 0) == daemon.is_wanted) return Style::kPlain;
  return Style::kBad;
}

std::int64_t count_open(const std::vector<Incident>& incidents) {
  std::int64_t open = 0;
  for (const Incident& incident : incidents) open += incident.is_open ? 1 : 0;
  return open;
}

std::int64_t count(const std::vector<FoundAnomaly>& anomalies, Opinion opinion) {
  std::int64_t number = 0;
  for (const FoundAnomaly& found : anomalies) number += found.opinion == opinion ? 1 : 0;
  return number;
}

std::string last_gather_words(const Health& health, bool utc) {
  const GatherHealth& gather = health.gather;
  if (gather.last == 0) return "none yet: the history has not been gathered";
  std::string words =
      time_text(gather.last, utc) + ", " + span_text(health.now - gather.last) + " ago";
  if (gather.log.last_seconds >= 0) words += "; took " + span_text(gather.log.last_seconds);
  return words;
}

std::string next_gather_words(const Health& health, bool utc) {
  if (health.gather.next == 0) return "none while the service does not run";
  if (health.gather.next < health.now) {
    return "was due " + time_text(health.gather.next, utc) + ", or runs now";
  }
  return "about " + time_text(health.gather.next, utc);
}

std::string gathers_words(const Health& health, bool utc) {
  const GatherLog& log = health.gather.log;
  if (log.from == 0) return "the service's log tells nothing";
  std::string words = counted(log.gathers, "gather", "gathers") + " in the log since " +
                      time_text(std::max(log.from, health.now - kDay), utc) + ", " +
                      alert::number_text(static_cast<double>(log.failed)) + " with errors";
  if (log.last_failed > 0) words += ", the last " + time_text(log.last_failed, utc);
  return words;
}

std::string alerts_words(const AlertHealth& alerts, std::int64_t now) {
  if (!alerts.is_known) return "nothing has been told yet";
  if (!alerts.trouble.empty()) return alerts.trouble;
  std::string words = counted(alerts.waiting(), "message waits", "messages wait");
  if (alerts.oldest() > 0) words += ", the oldest for " + span_text(now - alerts.oldest());
  words += "; " + alert::number_text(static_cast<double>(alerts.given_up())) + " given up";
  for (const alert::ChannelStatus& channel : alerts.channels) {
    if (channel.failures == 0) continue;
    words += "; " + channel.name + " fails: " + channel.last_error;
  }
  return words;
}

std::string number(std::int64_t value) { return alert::number_text(static_cast<double>(value)); }

std::string programs_text(const Context& context, const Health& health) {
  const Terminal& terminal = context.terminal;
  const bool utc = context.options.utc;
  std::string text;
  for (const Daemon& daemon : health.daemons) {
    text += line(terminal, label_of(daemon), words_for(daemon, health.now, utc), style_of(daemon));
  }
  text += line(terminal, "Last gather", last_gather_words(health, utc));
  text += line(terminal, "Next gather", next_gather_words(health, utc));
  text += line(terminal, "Gathers", gathers_words(health, utc),
               health.gather.log.failed > 0 ? Style::kWarning : Style::kPlain);
  return text + line(terminal, "Queue",
                     counted(health.gather.queued, "running job", "running jobs") +
                         " to be looked at again");
}

std::string streams_text(const Context& context, const Survey& survey) {
  std::string waiting =
      counted(survey.waiting_rows, "backup waits", "backups wait") + " for the detection";
  if (survey.oldest_waiting > 0) {
    waiting += ", the oldest of " + time_text(survey.oldest_waiting, context.options.utc);
  }
  return line(context.terminal, "Waiting", waiting) +
         line(context.terminal, "Streams",
              number(static_cast<std::int64_t>(survey.streams.size())) + ": " +
                  number(survey.count(StreamState::kJudged)) + " judged, " +
                  number(survey.count(StreamState::kLearning)) + " learning, " +
                  number(survey.count(StreamState::kDormant)) + " dormant");
}

std::string text_of(const Context& context, const Found& found) {
  const Terminal& terminal = context.terminal;
  const Health& health = found.health;
  std::string text = programs_text(context, health) + streams_text(context, found.survey);
  const std::int64_t open = count_open(found.incidents);
  text += line(
      terminal, "Incidents",
      number(open) + " open; " +
          counted(static_cast<std::int64_t>(found.anomalies.size()), "anomaly", "anomalies") +
          ", " + number(count(found.anomalies, Opinion::kConfirmed)) + " confirmed, " +
          counted(count(found.anomalies, Opinion::kFalsePositive), "false alarm", "false alarms"),
      open > 0 ? Style::kWarning : Style::kPlain);
  text += line(terminal, "Undelivered", alerts_words(health.alerts, health.now),
               health.alerts.given_up() > 0 ? Style::kBad : Style::kPlain);
  return text + line(terminal, "Database",
                     size_text(static_cast<double>(health.database_bytes) / 1024) + ", " +
                         counted(found.survey.history_rows, "record", "records") + " of history; " +
                         size_text(static_cast<double>(health.disk.available) / 1024) +
                         " free on its disk; " + context.database.path());
}

std::string json_of(const Found& found) {
  const JsonPtr root = document("status");
  put_health(root.get(), found.health);
  put_survey(root.get(), found.survey);
  put(root.get(), "open_incidents", count_open(found.incidents));
  JsonPtr anomalies(json_object());
  put(anomalies.get(), "total", static_cast<std::int64_t>(found.anomalies.size()));
  for (const Opinion opinion : {Opinion::kOpen, Opinion::kConfirmed, Opinion::kFalsePositive}) {
    put(anomalies.get(), name_of(opinion), count(found.anomalies, opinion));
  }
  put(root.get(), "anomalies", std::move(anomalies));
  return pretty(root.get());
}

}  // namespace

std::string run_status(const Context& context) {
  Found found;
  found.health = look(context.options, context.database);
  found.survey = survey(context.database, found.health.configured.detect, found.health.now);
  found.anomalies = read_anomalies(context.database, {});
  found.incidents = incidents_of(found.anomalies, found.survey);
  return context.options.json ? json_of(found) : text_of(context, found);
}

}  // namespace corvane::ctl
