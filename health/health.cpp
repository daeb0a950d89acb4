#include "health/health.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "anomaly_database/anomalies.h"
#include "anomaly_database/backups.h"
#include "anomaly_database/gather_marks.h"
#include "finding/anomaly.h"
#include "finding/words.h"
#include "health/own_databases.h"
#include "platform/clock.h"
#include "platform/own_processes.h"
#include "platform/program_names.h"
#include "util/directory.h"

namespace corvane::health {

namespace {

constexpr int kMostActs = 5;
constexpr std::int64_t kLongestQuiet =
    kDay;  // later ends of quiet hours are those of a wrong clock

Daemon look_for(const char* name, bool is_wanted, const std::string& log) {
  Daemon daemon;
  daemon.name = name;
  daemon.is_wanted = is_wanted;
  daemon.log_bytes = file_bytes(log);
  for (const pid_t process : own_processes(name)) {
    const std::int64_t since = started_at(process);
    if (since == 0) continue;  // it has ended meanwhile
    if (daemon.process != 0 && since >= daemon.since) continue;
    daemon.process = process;
    daemon.since = since;
    daemon.is_stopped = is_stopped(process);
  }
  return daemon;
}

// An anomaly that is not processed.
struct Unprocessed {
  AnomalyRow row;
  Severity severity = Severity::kNone;
  std::optional<alert::RecordState> alerts;  // nothing: the alerts do not know it
};

std::vector<Unprocessed> unprocessed_of(Connection& database) {
  std::vector<Unprocessed> all;
  for (AnomalyRow& row : unprocessed_rows(database)) {
    const Severity severity = read_anomaly(row).finding.severity;
    all.push_back({std::move(row), severity, std::nullopt});
  }
  return all;
}

void look_at_alerts(const std::string& path, std::vector<Unprocessed>& unprocessed,
                    Health& health) {
  with_alert_database(path, [&](alert::StateDatabase& state) {
    alert::Outbox outbox(state);
    std::vector<alert::ChannelStatus> channels = outbox.status();
    for (Unprocessed& one : unprocessed) {
      one.alerts = outbox.state_of(one.row.id, one.severity);
    }
    health.daemons[2].last_pass = state.number_of(alert::kLastPass);
    health.alerts.channels = std::move(channels);
  });
}

void look_at_detection(const std::string& path, Health& health) {
  with_verdicts(path, [&](detect::VerdictDatabase& verdicts) {
    const detect::LastPass pass = verdicts.last_pass();
    health.daemons[1].last_pass = pass.ended;
    health.daemons[1].pass_seconds = pass.seconds;
  });
}

void look_at_ledger(const std::string& path, Health& to) {
  with_ledger(path, [&](coverage::Ledger& ledger) {
    coverage::Gathers gathers(ledger);
    coverage::Holes holes(ledger);
    coverage::MissingBackups missing(ledger);
    LedgerHealth health;
    health.last_look = ledger.last_look();
    health.gathers = gathers.health();
    health.last_end = gathers.last_end();
    health.holes = holes.all();
    health.lost = holes.lost();
    health.missing = missing.all();
    health.given_up = missing.count_given_up();
    health.acts = ledger.acts(kMostActs);
    health.unjudged_since = ledger.number_of(coverage::kUnjudgedSince);
    health.unaudited_since = ledger.number_of(coverage::kUnauditedSince);
    health.audit_reason = ledger.text_of(coverage::kAuditReason);
    health.healed_at = ledger.number_of(coverage::kHealedAt);
    health.audited_at = ledger.number_of(coverage::kAuditedAt);
    health.purged_before = ledger.number_of(coverage::kPurgedBefore);
    health.purged_at = ledger.number_of(coverage::kPurgedAt);
    health.interval_minutes =
        std::clamp<std::int64_t>(ledger.number_of(coverage::kInterval), 0, kMostInterval);
    to.gather.log = gathers.counts(to.now - kDay);
    to.ledger = std::move(health);
  });
}

// The owner could read the file: nothing is wrong with it, but this caller cannot be told more.
bool is_denied_to_caller(const Trouble& trouble, const std::string& path) {
  if (trouble.status() != ExitStatus::kUnreadable) return false;
  const std::optional<uid_t> owner = owner_of(path);
  return owner && *owner != geteuid() && may_read(*owner, path);
}

// Of two times that which counts; 0: there is none yet.
std::int64_t first_of(std::int64_t one, std::int64_t other, std::int64_t now) {
  if (one == 0) return other;
  const bool is_future = one > now + coverage::kClockSkew;
  if (is_future != (other > now + coverage::kClockSkew)) return is_future ? one : other;
  return std::min(one, other);
}

void add_unprocessed(const Unprocessed& one, std::int64_t now, Backlog& to) {
  const std::int64_t detected = one.row.detection_time;
  const std::int64_t held = one.alerts ? one.alerts->held : 0;
  const bool is_held = held > now && held <= now + kLongestQuiet;
  if (!is_held) {
    const std::int64_t due = held <= now ? std::max(detected, held) : detected;
    to.oldest_unprocessed = first_of(to.oldest_unprocessed, due, now);
  }
  const bool is_known = one.row.feedback || (one.alerts && one.alerts->is_told);
  if (one.severity != Severity::kCritical || is_known) return;
  to.oldest_critical = first_of(to.oldest_critical, detected, now);
  ++to.criticals;
}

std::vector<std::string> open_files_of(const Places& places) {
  std::vector<std::string> open;
  for (const std::string& database :
       {places.database, places.detection_database, places.alert_database, places.ledger}) {
    for (const char* suffix : {"", "-wal", "-shm", ".damaged"}) {
      if (is_open_to_others(database + suffix)) open.push_back(database + suffix);
    }
  }
  return open;
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
  const GatherTimes& gather = health.gather;
  const std::int64_t took = std::max<std::int64_t>(gather.log.last_seconds, 0);
  // Of a history the time that is stored is that of its begin; its last slice ends later.
  const std::int64_t slice =
      health.ledger.last_end <= health.now + coverage::kClockSkew ? health.ledger.last_end : 0;
  const std::int64_t ended = gather.last > 0 ? std::max(gather.last + took, slice) : 0;
  const std::int64_t begin = std::max(ended, service.since);
  return begin + health.interval();
}

}  // namespace

std::int64_t AlertHealth::waiting() const { return sum(channels, &alert::ChannelStatus::waiting); }

std::int64_t AlertHealth::given_up() const {
  return sum(channels, &alert::ChannelStatus::given_up);
}

std::int64_t AlertHealth::oldest() const {
  return earliest(channels, &alert::ChannelStatus::oldest);
}

std::int64_t AlertHealth::due() const { return earliest(channels, &alert::ChannelStatus::due); }

std::int64_t Health::interval() const {
  return kMinute * (ledger.interval_minutes > 0 ? ledger.interval_minutes
                                                : std::int64_t{configured.interval_minutes});
}

std::int64_t LedgerHealth::holes_seconds() const {
  std::int64_t seconds = 0;
  for (const coverage::Hole& hole : holes) seconds += hole.range.end - hole.range.begin + 1;
  return seconds;
}

namespace {

bool is_running(const char* program) { return look_for(program, true, {}).process != 0; }

Health look_at_programs(const Places& places, Configured configured) {
  Health health;
  health.now = corvane::now();
  health.had_companions = Directory::CanAccess(places.alert_database) ||
                          Directory::CanAccess(places.detection_database);
  health.daemons = {
      look_for(kManagementProgram, configured.service, places.log_file(kManagementProgram)),
      look_for(kDetectionProgram, configured.detection, places.log_file(kDetectionProgram)),
      look_for(kAlertProgram, configured.alerts, places.log_file(kAlertProgram))};
  health.configured = std::move(configured);
  health.database_bytes = file_bytes(places.database) + file_bytes(places.database + "-wal");
  health.disk = disk_space(places.database);
  health.open_to_others = open_files_of(places);
  return health;
}

// Returns the first trouble that is the caller's alone.
std::optional<Trouble> look_at_own_databases(const Places& places,
                                             std::vector<Unprocessed>& unprocessed,
                                             Health& health) {
  std::optional<Trouble> denied;
  const auto trouble_in = [&](const std::string& path, const auto& look) -> std::string {
    try {
      look(path);
      return {};
    } catch (const Trouble& trouble) {
      if (!denied && is_denied_to_caller(trouble, path)) denied = trouble;
      return trouble.what();
    }
  };
  health.detection_trouble = trouble_in(
      places.detection_database, [&](const std::string& path) { look_at_detection(path, health); });
  health.alerts.is_known = Directory::CanAccess(places.alert_database);
  health.alerts.trouble = trouble_in(places.alert_database, [&](const std::string& path) {
    look_at_alerts(path, unprocessed, health);
  });
  health.ledger.trouble =
      trouble_in(places.ledger, [&](const std::string& path) { look_at_ledger(path, health); });
  return denied;
}

// Of a file that this caller may not read, too.
Configured configuration_of(const Places& places) {
  try {
    return read_configuration(places.config, owner_of(places.database));
  } catch (const Trouble& trouble) {
    Configured unknown;
    unknown.trouble = trouble.what();
    return unknown;
  }
}

}  // namespace

bool is_database_missed(const Places& places) {
  const std::array own{places.detection_database, places.alert_database, places.ledger};
  if (std::ranges::any_of(own, [](const auto& path) { return Directory::CanAccess(path); })) {
    return true;
  }
  if (is_running(kManagementProgram)) return true;
  try {
    const Configured configured = read_configuration(places.config);
    return configured.has_file && configured.service;
  } catch (const Trouble&) {
    return false;  // the caller may not read it
  }
}

Health look_without_database(const Places& places) {
  Health health = look_at_programs(places, configuration_of(places));
  health.has_database = false;
  std::vector<Unprocessed> none;
  try {
    look_at_own_databases(places, none, health);
  } catch (const ChangedMeanwhile&) {
    health.ledger = {};  // nothing of it is known at the moment
  }
  return health;
}

Health look(const Places& places, Database& database) {
  Health health =
      look_at_programs(places, read_configuration(places.config, owner_of(places.database)));
  std::vector<Unprocessed> unprocessed = unprocessed_of(database.connection());
  if (const std::optional<Trouble> denied = look_at_own_databases(places, unprocessed, health)) {
    throw Trouble(*denied);
  }
  for (const Unprocessed& one : unprocessed) add_unprocessed(one, health.now, health.backlog);
  health.backlog.unjudged = count_waiting(database.connection());
  if (const pid_t service = health.service().process; service != 0) {
    health.service_database = open_file(service, places.database);
  }
  health.gather.last = last_gather(database.connection());
  health.gather.queued = count_queued_jobs(database.connection());
  health.gather.next = next_gather(health);
  return health;
}

}  // namespace corvane::health
