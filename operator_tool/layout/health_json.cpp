#include "operator_tool/layout/health_json.h"

#include "operator_tool/layout/json.h"

namespace corvane::ctl {

namespace {

JsonPtr json_of(const health::Daemon& daemon) {
  JsonPtr object(json_object());
  put(object.get(), "name", daemon.name);
  put(object.get(), "running", daemon.process != 0);
  put(object.get(), "wanted", daemon.is_wanted);
  put_known(object.get(), "process", daemon.process);
  put_known(object.get(), "since", daemon.since);
  put(object.get(), "log_bytes", daemon.log_bytes);
  return object;
}

JsonPtr json_of(const health::Health& health, const health::GatherTimes& gather) {
  JsonPtr object(json_object());
  put_known(object.get(), "last", gather.last);
  put_known(object.get(), "next", gather.next);
  put(object.get(), "interval_minutes", std::int64_t{health.configured.interval_minutes});
  put(object.get(), "queued_jobs", gather.queued);
  JsonPtr log(json_object());
  put_known(log.get(), "from", gather.log.from);
  put(log.get(), "gathers", gather.log.gathers);
  put(log.get(), "failed", gather.log.failed);
  put_known(log.get(), "last_failed", gather.log.last_failed);
  put_known(log.get(), "last_end", gather.log.last_end);
  if (gather.log.last_seconds >= 0) {
    put(log.get(), "last_seconds", gather.log.last_seconds);
  } else {
    put(log.get(), "last_seconds", JsonPtr(json_null()));
  }
  put(object.get(), "log", std::move(log));
  return object;
}

JsonPtr json_of(const health::AlertHealth& alerts) {
  JsonPtr object(json_object());
  put(object.get(), "known", alerts.is_known);
  put(object.get(), "waiting", alerts.waiting());
  put_known(object.get(), "oldest", alerts.oldest());
  put(object.get(), "given_up", alerts.given_up());
  JsonPtr channels(json_array());
  for (const alert::ChannelStatus& status : alerts.channels) {
    JsonPtr channel(json_object());
    put(channel.get(), "name", status.name);
    put(channel.get(), "waiting", status.waiting);
    put(channel.get(), "given_up", status.given_up);
    put(channel.get(), "taken", status.taken);
    put(channel.get(), "failures", status.failures);
    put_known(channel.get(), "failing_since", status.failing_since);
    put_known(channel.get(), "last_success", status.last_success);
    put(channel.get(), "last_error", status.last_error);
    append(channels.get(), std::move(channel));
  }
  put(object.get(), "channels", std::move(channels));
  if (!alerts.trouble.empty()) put(object.get(), "trouble", alerts.trouble);
  return object;
}

JsonPtr json_of(const coverage::TimeRange& range) {
  JsonPtr object(json_object());
  put(object.get(), "from", range.begin);
  put(object.get(), "to", range.end);
  return object;
}

JsonPtr json_of(const health::LedgerHealth& ledger) {
  JsonPtr object(json_object());
  put_known(object.get(), "last_look", ledger.last_look);
  put(object.get(), "failed_in_a_row", ledger.gathers.failed_in_a_row);
  put_known(object.get(), "first_failed", ledger.gathers.first_failed);
  put(object.get(), "reason", ledger.gathers.reason);
  put_known(object.get(), "last_complete", ledger.gathers.last_complete);
  put_known(object.get(), "open_since", ledger.gathers.open_since);
  JsonPtr holes(json_array());
  for (const coverage::Hole& hole : ledger.holes) append(holes.get(), json_of(hole.range));
  put(object.get(), "holes", std::move(holes));
  put(object.get(), "holes_seconds", ledger.holes_seconds());
  put(object.get(), "missing_backups", std::int64_t{std::ssize(ledger.missing)});
  put(object.get(), "given_up_backups", ledger.given_up);
  JsonPtr lost(json_array());
  for (const coverage::TimeRange& range : ledger.lost) append(lost.get(), json_of(range));
  put(object.get(), "lost", std::move(lost));
  put_known(object.get(), "unjudged_since", ledger.unjudged_since);
  put_known(object.get(), "unaudited_since", ledger.unaudited_since);
  JsonPtr acts(json_array());
  for (const coverage::Act& act : ledger.acts) {
    JsonPtr entry(json_object());
    put(entry.get(), "time", act.time);
    put(entry.get(), "text", act.text);
    append(acts.get(), std::move(entry));
  }
  put(object.get(), "acts", std::move(acts));
  if (!ledger.trouble.empty()) put(object.get(), "trouble", ledger.trouble);
  return object;
}

}  // namespace

void put_problems(json_t* root, const std::vector<health::Problem>& problems) {
  JsonPtr details(json_array());
  for (const health::Problem& problem : problems) {
    JsonPtr object(json_object());
    put(object.get(), "level", name_of(problem.level));
    put(object.get(), "name", problem.name);
    put(object.get(), "words", problem.words);
    append(details.get(), std::move(object));
  }
  put(root, "problem_list", std::move(details));
}

void put_health(json_t* root, const health::Health& health) {
  put(root, "time", health.now);
  JsonPtr processes(json_array());
  for (const health::Daemon& daemon : health.daemons) append(processes.get(), json_of(daemon));
  put(root, "processes", std::move(processes));
  put(root, "gather", json_of(health, health.gather));
  put(root, "alerts", json_of(health.alerts));
  put_healing(root, health.ledger);
  put(root, "database_bytes", health.database_bytes);
  put(root, "disk_free_bytes", health.disk.available);
  put(root, "disk_total_bytes", health.disk.total);
}

void put_healing(json_t* root, const health::LedgerHealth& ledger) {
  put(root, "healing", json_of(ledger));
}

void put_survey(json_t* root, const StreamSurvey& survey) {
  JsonPtr streams(json_object());
  put(streams.get(), "total", static_cast<std::int64_t>(survey.streams.size()));
  for (const StreamState state :
       {StreamState::kLearning, StreamState::kJudged, StreamState::kDormant}) {
    put(streams.get(), name_of(state), survey.count(state));
  }
  put(root, "streams", std::move(streams));
  JsonPtr records(json_object());
  put(records.get(), "history", survey.history_rows);
  put(records.get(), "to_process", survey.process_rows);
  put(records.get(), "waiting", survey.waiting_rows);
  put_known(records.get(), "oldest_waiting", survey.oldest_waiting);
  put(root, "records", std::move(records));
}

}  // namespace corvane::ctl
