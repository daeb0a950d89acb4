#include "health/problems.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "config/service_values.h"
#include "finding/words.h"
#include "health/gaps.h"
#include "platform/program_names.h"

namespace corvane::health {

namespace {

constexpr int kWarningIntervals = 3;
constexpr int kCriticalIntervals = 12;
constexpr std::int64_t kStale = 15 * kMinute;  // three looks of cvanomalyheal
constexpr std::int64_t kFirstLook = 10 * kMinute;
constexpr std::int64_t kHangs = 15 * kMinute;
constexpr std::int64_t kPasses = 3;
constexpr std::int64_t kLongGather = 10 * kMinute;
constexpr int kLongGatherIntervals = 4;
constexpr std::int64_t kLongestGather = 6 * kHour;  // whatever the interval
// A slice of the history is an hour of backups, and takes minutes at most.
constexpr std::int64_t kHistoryStalls = 3 * kHour;
constexpr std::int64_t kFailures = 3;
constexpr std::int64_t kOpened = kMinute;  // after its start the service has its database open
constexpr std::int64_t kNotified = 15 * kMinute;

class Found {
 public:
  // The worst first; problems of one level in the order in which they are found.
  void add(Level level, const std::string& name, const std::string& words) {
    const auto place =
        std::ranges::find_if(problems_, [&](const Problem& other) { return other.level < level; });
    problems_.insert(place, {level, name, words});
  }
  void critical(const char* name, const std::string& words) { add(Level::kCritical, name, words); }
  void warning(const char* name, const std::string& words) { add(Level::kWarning, name, words); }

  // A value that reaches a limit is a problem.
  void add_if_high(std::int64_t value, const Limits& limits, const char* name,
                   const std::string& words, Level worst = Level::kCritical) {
    if (value >= limits.critical) {
      add(worst, name, words);
    } else if (value >= limits.warning) {
      warning(name, words);
    }
  }

  std::vector<Problem> take() { return std::move(problems_); }

 private:
  std::vector<Problem> problems_;
};

// Of what a service that is off does not work on.
Level worst_of(const Health& health) {
  return health.is_off() ? Level::kWarning : Level::kCritical;
}

bool runs_for(const Health& health, const Daemon& daemon, std::int64_t seconds) {
  return daemon.process != 0 && health.now - daemon.since >= seconds;
}

// The service reads the setting when it starts, and says at each gather what it deletes.
void judge_purge(const Health& health, Found& found) {
  const LedgerHealth& ledger = health.ledger;
  const Daemon& service = health.service();
  const int months = health.configured.purge_months;
  if (ledger.purged_at == 0 || months <= 0) return;
  if (service.process == 0 || ledger.purged_at < service.since) return;  // it may have changed
  const std::int64_t configured = purge_cut_off(static_cast<int>(ledger.purged_at), months);
  if (ledger.purged_before <= configured + kDay) return;
  found.critical("purge_in_effect", std::string("the running service uses a former ") +
                                        setting::kPurgeInterval.key +
                                        " and deletes records before " +
                                        utc_text(ledger.purged_before) + " until it is restarted");
}

void judge_configuration(const Health& health, Found& found) {
  const Configured& configured = health.configured;
  if (!configured.trouble.empty()) {
    found.critical("configuration", without_full_stop(configured.trouble) +
                                        ": the detection, the alerts and the healing are off");
  } else if (!configured.has_file && health.had_companions) {
    found.critical("configuration",
                   "the configuration file is missing: every setting has its default");
  }
  if (configured.purge_months <= 0) {
    found.add(worst_of(health), "purge_setting",
              std::string(setting::kPurgeInterval.key) + " is " + configured.purge +
                  ": each purge with this value deletes all records except false positives");
  }
  judge_purge(health, found);
  if (!configured.heals) found.warning("healing_off", "healing is disabled in the configuration");
  if (!configured.service) {
    found.warning("service_off", "backup anomaly detection is disabled in the configuration");
  } else if (!configured.detection) {
    found.warning("detection_off", "the detection is disabled in the configuration");
  } else if (!configured.alerts) {
    found.warning("alerts_off", "alerts are disabled in the configuration");
  }
}

// A gather that is due has not begun, as a look that was late enough has seen. Of a service that
// has not said how long it waits nothing is known while it may do so by a former interval.
bool is_gather_overdue(const Health& health) {
  const GatherTimes& gather = health.gather;
  const LedgerHealth& ledger = health.ledger;
  const std::int64_t interval = health.interval();
  if (gather.last == 0 || gather.next == 0 || ledger.gathers.open_since != 0) return false;
  if (ledger.interval_minutes == 0 && health.configured.changed >= gather.next - interval) {
    return false;
  }
  // The gather counts, too, when its time could not be stored.
  const std::int64_t ended = is_future(health, gather.log.last_end) ? 0 : gather.log.last_end;
  return !is_future(health, ledger.last_look) &&
         ledger.last_look >= std::max(gather.next, ended + interval) + kHangs;
}

// Why the program hangs; empty: it does not.
std::string hang_of(const Health& health, const Daemon& daemon) {
  if (daemon.is_stopped)
    return daemon.name + " is suspended: a signal or a debugger has stopped it";
  const std::string hangs = daemon.name + " hangs: ";
  if (daemon.name == kManagementProgram) {
    if (!is_gather_overdue(health)) return {};
    return hangs + "the gather that was due at " + utc_text(health.gather.next) + " has not begun";
  }
  // A pass that is in progress may take as long as the one before.
  const std::int64_t limit = std::max(kHangs, kPasses * daemon.pass_seconds);
  if (!runs_for(health, daemon, limit) || !is_old(health, daemon.last_pass, limit)) return {};
  if (daemon.last_pass == 0) return hangs + "no pass is noted";
  if (is_future(health, daemon.last_pass)) {
    return hangs + "its last pass is dated " + utc_text(daemon.last_pass) + ", in the future";
  }
  return hangs + "its last pass was " + span_text(health.now - daemon.last_pass) + " ago";
}

void judge_programs(const Health& health, Found& found) {
  for (const Daemon& daemon : health.daemons) {
    if (!daemon.is_wanted) continue;
    if (daemon.process == 0) {
      found.critical("program_absent", daemon.name + " is not running");
    } else if (const std::string hang = hang_of(health, daemon); !hang.empty()) {
      found.critical("program_hung", hang);
    }
  }
}

void judge_database(const Health& health, Found& found) {
  if (health.has_database && runs_for(health, health.service(), kOpened)) {
    if (health.service_database == OpenFile::kNotOpen) {
      found.critical("database_replaced",
                     "the database was replaced: the running service writes to another file");
    } else if (health.service_database == OpenFile::kUnknown) {
      found.warning("database_unknown",
                    "it is not known whether the running service has this database open: ask as "
                    "root or as its account");
    }
  }
  if (!health.open_to_others.empty()) {
    found.warning("database_open", "users other than the service account can read or write " +
                                       health.open_to_others.front());
  }
}

void judge_look(const Health& health, Found& found) {
  if (health.is_off()) return;  // the healer's timer stops with the service
  const LedgerHealth& ledger = health.ledger;
  if (!ledger.trouble.empty()) {
    found.critical("ledger_unreadable", without_full_stop(ledger.trouble));
  } else if (ledger.last_look == 0) {
    found.add(runs_for(health, health.service(), kHour) ? Level::kCritical : Level::kWarning,
              "never_looked", "cvanomalyheal has never run");
  } else if (ledger.last_look > health.now + coverage::kClockSkew) {
    found.critical("ledger_stale", "the last look of cvanomalyheal is dated " +
                                       utc_text(ledger.last_look) + ", in the future");
  } else if (health.now - ledger.last_look >= kStale) {
    // While the service was not running nobody looked, and the first look takes its time.
    const bool is_starting =
        health.service().process != 0 && !runs_for(health, health.service(), kFirstLook);
    found.add(is_starting ? Level::kWarning : Level::kCritical, "ledger_stale",
              "the last look of cvanomalyheal was at " + utc_text(ledger.last_look));
  }
}

// A service that has just begun waits for an interval first.
bool is_history_stalled(const Health& health) {
  const LedgerHealth& ledger = health.ledger;
  const Daemon& service = health.service();
  if (service.process == 0 || ledger.gathers.open_since != 0) return false;
  const std::int64_t begin = service.since + health.interval();
  const std::int64_t ended = is_future(health, ledger.last_end) ? 0 : ledger.last_end;
  return !is_future(health, ledger.last_look) &&
         ledger.last_look >= std::max(begin, ended) + kHistoryStalls;
}

void judge_last_gather(const Health& health, const Limits& limits, Found& found) {
  if (!health.configured.service || !health.has_database) return;
  const GatherTimes& gather = health.gather;
  if (gather.last > 0) {
    // Until the first live gather, that of the history counts by its end.
    const bool is_history = gather.log.last_end == 0 && !is_future(health, health.ledger.last_end);
    const std::int64_t last =
        is_history ? std::max(gather.last, health.ledger.last_end) : gather.last;
    const std::int64_t lag = health.now - last;
    if (health.now - gather.last < -coverage::kClockSkew) {
      found.critical("marker_in_future", "the last gather is dated " + utc_text(gather.last) +
                                             ", in the future: the service does not gather "
                                             "before then");
    } else {
      found.add_if_high(lag, limits, "gather_late", "last gather " + span_text(lag) + " ago");
    }
    return;
  }
  // The first one gathers three months of history.
  if (is_history_stalled(health)) {
    found.critical("history_not_gathered",
                   "the history has not been gathered yet, and nothing gathers it");
  } else if (runs_for(health, health.service(), limits.critical)) {
    found.warning("history_not_gathered", "the history has not been gathered yet");
  }
}

void judge_gathers(const Health& health, Found& found) {
  if (!health.configured.service) return;
  const coverage::GatherHealth& gathers = health.ledger.gathers;
  if (gathers.failed_in_a_row >= kFailures) {
    std::string words = counted(gathers.failed_in_a_row, "gather", "gathers") +
                        " failed in a row since " + utc_text(gathers.first_failed);
    if (!gathers.reason.empty()) words += ": " + without_full_stop(gathers.reason);
    found.critical("gathers_failed", words);
  }
  // The look saw it; whether it has ended since then is not known yet.
  if (gathers.open_since == 0) return;
  if (is_future(health, gathers.open_since)) {
    found.critical("gather_slow",
                   "a gather has been running " + since_text(health, gathers.open_since));
    return;
  }
  const std::int64_t took = health.ledger.last_look - gathers.open_since;
  const std::int64_t critical = std::min(kLongestGather, kLongGatherIntervals * health.interval());
  found.add_if_high(took, {kLongGather, critical}, "gather_slow",
                    "a gather has been running for " + span_text(took));
}

void judge_detection(const Health& health, Found& found) {
  if (!health.configured.detection) return;
  if (!health.detection_trouble.empty()) {
    found.critical("detection_unreadable", without_full_stop(health.detection_trouble));
  }
  const std::int64_t since = health.ledger.unjudged_since;
  if (health.backlog.unjudged == 0 || since == 0 || !is_old(health, since, kHour)) return;
  found.critical("rows_unjudged", counted(health.backlog.unjudged, "backup is", "backups are") +
                                      " waiting for the detection, the first " +
                                      since_text(health, since));
}

void judge_notification(const Health& health, Found& found) {
  const Backlog& backlog = health.backlog;
  // Whatever is switched off: somebody has to know.
  if (backlog.criticals > 0 && is_old(health, backlog.oldest_critical, kNotified)) {
    found.critical("critical_not_notified",
                   "nobody was notified of " +
                       counted(backlog.criticals, "critical anomaly", "critical anomalies") + " " +
                       since_text(health, backlog.oldest_critical));
  }
  if (health.configured.alerts && backlog.oldest_unprocessed != 0 &&
      is_old(health, backlog.oldest_unprocessed, kHour)) {
    found.critical("anomalies_unprocessed", "an anomaly has not been delivered on every channel " +
                                                since_text(health, backlog.oldest_unprocessed));
  }
}

void judge_alerts(const Health& health, const Thresholds& at, Found& found) {
  const AlertHealth& alerts = health.alerts;
  if (!alerts.trouble.empty()) {
    found.critical("alerts_unreadable", without_full_stop(alerts.trouble));
  }
  if (const std::int64_t due = alerts.due(); due > 0 && due <= health.now) {
    const std::int64_t pending = health.now - due;
    found.add_if_high(pending, {kMinute * at.alerts_warning, kMinute * at.alerts_critical},
                      "messages_pending",
                      counted(alerts.waiting(), "message", "messages") +
                          " pending, the oldest for " + span_text(pending),
                      worst_of(health));
  }
  if (alerts.given_up() > 0) {
    found.critical("dead_letters", counted(alerts.given_up(), "dead letter", "dead letters"));
  }
}

void judge_disk(const Health& health, const Thresholds& at, Found& found) {
  if (health.disk.total == 0) return;
  const double free = health.disk.percent_free();
  const std::string words = percent_text(free) + "% free on the database's disk";
  if (free <= at.disk_critical) {
    found.critical("disk", words);
  } else if (free <= at.disk_warning) {
    found.warning("disk", words);
  }
}

}  // namespace

const char* name_of(Level level) { return level == Level::kCritical ? "critical" : "warning"; }

Limits gather_limits(const Health& health, const Thresholds& at) {
  const auto limit = [&](int minutes, int intervals) {
    return minutes >= 0 ? kMinute * minutes : intervals * health.interval();
  };
  return {limit(at.gather_warning, kWarningIntervals),
          limit(at.gather_critical, kCriticalIntervals)};
}

std::string percent_text(double percent) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", percent);
  return text.data();
}

std::vector<Problem> problems_of(const Health& health, const Thresholds& at) {
  Found found;
  judge_configuration(health, found);
  judge_programs(health, found);
  judge_database(health, found);
  judge_look(health, found);
  judge_last_gather(health, gather_limits(health, at), found);
  judge_gathers(health, found);
  for (const Problem& problem : gap_problems(health)) {
    found.add(problem.level, problem.name, problem.words);
  }
  judge_detection(health, found);
  judge_notification(health, found);
  judge_alerts(health, at, found);
  judge_disk(health, at, found);
  return found.take();
}

}  // namespace corvane::health
