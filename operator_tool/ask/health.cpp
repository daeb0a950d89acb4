#include "operator_tool/ask/health.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "anomaly_database/gather_marks.h"
#include "companions/detect/settings_file.h"
#include "config/configuration.h"
#include "config/service_values.h"
#include "config/setting_values.h"
#include "finding/words.h"
#include "operator_tool/ask/alert_database.h"
#include "platform/clock.h"
#include "platform/process_handler.h"
#include "platform/program_names.h"
#include "util/directory.h"

namespace corvane::ctl {

namespace {

constexpr int kMostInterval = 1000000;  // minutes; so that sums of intervals do not overflow

// A value that is neither 0 nor 1 disables nothing: the service does not start with it, and people
// have to see that.
bool is_set(Configuration& file, const Setting& flag) {
  return switch_value(flag, value_of(file, flag)) == 1;
}

Daemon look_for(const char* name, bool is_wanted, const std::string& log) {
  Daemon daemon;
  daemon.name = name;
  daemon.is_wanted = is_wanted;
  daemon.log_bytes = file_bytes(log);
  for (const pid_t process : ProcessHandler(name).getProcessIDs()) {
    const std::int64_t since = started_at(process);
    if (since == 0) continue;  // it has ended meanwhile
    if (daemon.process != 0 && since >= daemon.since) continue;
    daemon.process = process;
    daemon.since = since;
  }
  return daemon;
}

AlertHealth look_at_alerts(const Options& options) {
  AlertHealth health;
  health.is_known = Directory::CanAccess(options.alert_database());
  try {
    with_alert_database(options, [&](alert::StateDatabase& state) {
      health.channels = alert::Outbox(state).status();
    });
  } catch (const Trouble& trouble) {
    health.trouble = trouble.what();
  }
  return health;
}

using ChannelNumber = std::int64_t alert::ChannelStatus::*;

std::int64_t sum(const std::vector<alert::ChannelStatus>& channels, ChannelNumber number) {
  std::int64_t all = 0;
  for (const alert::ChannelStatus& channel : channels) all += channel.*number;
  return all;
}

// Of the channels with pending messages whose time is known; 0: none.
std::int64_t earliest(const std::vector<alert::ChannelStatus>& channels, ChannelNumber time) {
  std::int64_t first = 0;
  for (const alert::ChannelStatus& channel : channels) {
    if (channel.waiting == 0 || channel.*time == 0) continue;
    first = first == 0 ? channel.*time : std::min(first, channel.*time);
  }
  return first;
}

// The interval counts from the end of a gather, or from the service's start.
std::int64_t next_gather(const Health& health) {
  const Daemon& service = health.service();
  if (service.process == 0) return 0;
  const GatherHealth& gather = health.gather;
  const std::int64_t took = std::max<std::int64_t>(gather.log.last_seconds, 0);
  const std::int64_t ended = gather.last > 0 ? gather.last + took : 0;
  const std::int64_t begin = std::max(ended, service.since);
  return begin + kMinute * health.configured.interval_minutes;
}

}  // namespace

Configured read_configuration(const std::string& path) {
  // With defaults in its place, check would not notice that a companion is not running.
  if (access(path.c_str(), R_OK) != 0 && errno == EACCES) throw permission_denied(path);
  Configured configured;
  Configuration file(path, 1);
  configured.service = !is_set(file, setting::kDisableAnomalyDetection);
  configured.detection = configured.service && !is_set(file, setting::kDisableDetectionService);
  configured.alerts = configured.detection && !is_set(file, setting::kDisableAlertService);
  const std::string interval = value_of(file, setting::kGatherFrequency);
  configured.interval_minutes = std::min(gather_interval_minutes(interval), kMostInterval);
  std::vector<std::string> complaints;
  detect::read_settings(path, configured.detect, complaints);
  return configured;
}

std::int64_t AlertHealth::waiting() const { return sum(channels, &alert::ChannelStatus::waiting); }

std::int64_t AlertHealth::given_up() const {
  return sum(channels, &alert::ChannelStatus::given_up);
}

std::int64_t AlertHealth::oldest() const {
  return earliest(channels, &alert::ChannelStatus::oldest);
}

std::int64_t AlertHealth::due() const { return earliest(channels, &alert::ChannelStatus::due); }

Health look(const Options& options, Database& database) {
  Health health;
  health.now = corvane::now();
  health.configured = read_configuration(options.config);
  const Configured& configured = health.configured;
  health.daemons = {
      look_for(kManagementProgram, configured.service, options.log_file(kManagementProgram)),
      look_for(kDetectionProgram, configured.detection, options.log_file(kDetectionProgram)),
      look_for(kAlertProgram, configured.alerts, options.log_file(kAlertProgram))};
  health.alerts = look_at_alerts(options);
  health.database_bytes = file_bytes(options.database) + file_bytes(options.database + "-wal");
  health.disk = disk_space(options.database);
  health.gather.log = read_gather_log(options.log_file(kManagementProgram), health.now - kDay);
  health.gather.last = last_gather(database.connection());
  health.gather.queued = count_queued_jobs(database.connection());
  health.gather.next = next_gather(health);
  return health;
}

}  // namespace corvane::ctl
