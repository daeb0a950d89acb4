#include "operator_tool/layout/health_json.h"

#include "operator_tool/layout/json.h"

namespace corvane::ctl {

namespace {

JsonPtr json_of(const Daemon& daemon) {
  JsonPtr object(json_object());
  put(object.get(), "name", daemon.name);
  put(object.get(), "running", daemon.process != 0);
  put(object.get(), "wanted", daemon.is_wanted);
  put_known(object.get(), "process", daemon.process);
  put_known(object.get(), "since", daemon.since);
  put(object.get(), "log_bytes", daemon.log_bytes);
  return object;
}

JsonPtr json_of(const Health& health, const GatherHealth& gather) {
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

JsonPtr json_of(const AlertHealth& alerts) {
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

}  // namespace

void put_health(json_t* root, const Health& health) {
  put(root, "time", health.now);
  JsonPtr processes(json_array());
  for (const Daemon& daemon : health.daemons) append(processes.get(), json_of(daemon));
  put(root, "processes", std::move(processes));
  put(root, "gather", json_of(health, health.gather));
  put(root, "alerts", json_of(health.alerts));
  put(root, "database_bytes", health.database_bytes);
  put(root, "disk_free_bytes", health.disk.available);
  put(root, "disk_total_bytes", health.disk.total);
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
