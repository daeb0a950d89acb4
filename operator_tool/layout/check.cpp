#include "operator_tool/layout/check.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "finding/words.h"
#include "operator_tool/layout/json.h"
#include "operator_tool/terminal/terminal.h"
#include "operator_tool/terminal/words.h"

namespace corvane::ctl {

namespace {

constexpr int kWarningIntervals = 3;
constexpr int kCriticalIntervals = 12;

class Judge {
 public:
  void add(CheckStatus status, const std::string& problem) {
    // The worst first; problems of one status in the order in which they are found.
    const auto place =
        std::ranges::find_if(found_, [&](const auto& other) { return other.first < status; });
    found_.insert(place, {status, problem});
  }

  // A value that reaches a limit is a problem.
  void add_if_high(std::int64_t value, std::int64_t warning, std::int64_t critical,
                   const std::string& problem) {
    if (value >= critical) {
      add(CheckStatus::kCritical, problem);
    } else if (value >= warning) {
      add(CheckStatus::kWarning, problem);
    }
  }

  CheckResult result() const {
    CheckResult result;
    if (!found_.empty()) result.status = found_.front().first;
    for (const auto& [status, problem] : found_) result.problems.push_back(problem);
    return result;
  }

 private:
  std::vector<std::pair<CheckStatus, std::string>> found_;
};

struct Limits {
  std::int64_t warning = 0;  // seconds
  std::int64_t critical = 0;
};

Limits gather_limits(const Health& health, const Thresholds& at) {
  const int interval = health.configured.interval_minutes;
  return {kMinute * (at.gather_warning >= 0 ? at.gather_warning : kWarningIntervals * interval),
          kMinute * (at.gather_critical >= 0 ? at.gather_critical : kCriticalIntervals * interval)};
}

void judge_gather(const Health& health, const Limits& limits, Judge& judge) {
  if (!health.configured.service) return;
  const GatherHealth& gather = health.gather;
  if (gather.last > 0) {
    const std::int64_t lag = health.now - gather.last;
    judge.add_if_high(lag, limits.warning, limits.critical,
                      "last gather " + span_text(lag) + " ago");
    return;
  }
  // The first one gathers three months of history.
  const Daemon& service = health.service();
  if (service.process != 0 && health.now - service.since >= limits.critical) {
    judge.add(CheckStatus::kWarning, "the history has not been gathered yet");
  }
}

void judge_alerts(const Health& health, const Thresholds& at, Judge& judge) {
  const AlertHealth& alerts = health.alerts;
  if (std::string problem = alerts.trouble; !problem.empty()) {
    if (problem.ends_with('.')) problem.pop_back();  // problems are separated by semicolons
    judge.add(CheckStatus::kWarning, problem);
  }
  if (const std::int64_t due = alerts.due(); due > 0 && due <= health.now) {
    const std::int64_t pending = health.now - due;
    judge.add_if_high(pending, kMinute * at.alerts_warning, kMinute * at.alerts_critical,
                      counted(alerts.waiting(), "message", "messages") +
                          " pending, the oldest for " + span_text(pending));
  }
  if (alerts.given_up() > 0) {
    judge.add(CheckStatus::kWarning, counted(alerts.given_up(), "dead letter", "dead letters"));
  }
}

std::string percent_text(double percent) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", percent);
  return text.data();
}

void judge_disk(const Health& health, const Thresholds& at, Judge& judge) {
  if (health.disk.total == 0) return;
  const double free = health.disk.percent_free();
  const std::string problem = percent_text(free) + "% free on the database's disk";
  if (free <= at.disk_critical) {
    judge.add(CheckStatus::kCritical, problem);
  } else if (free <= at.disk_warning) {
    judge.add(CheckStatus::kWarning, problem);
  }
}

std::string figures_of(const Health& health, const Limits& gather, const Thresholds& at) {
  const auto number = [](std::int64_t value) { return std::to_string(value); };
  std::string figures;
  if (health.gather.last > 0) {
    figures += "gather_lag=" + number(std::max<std::int64_t>(health.now - health.gather.last, 0)) +
               "s;" + number(gather.warning) + ";" + number(gather.critical) + ";0 ";
  }
  const std::int64_t due = health.alerts.due();
  figures += "alerts_waiting=" + number(health.alerts.waiting()) + ";;;0 alerts_oldest=" +
             number(due > 0 ? std::max<std::int64_t>(health.now - due, 0) : 0) + "s;" +
             number(kMinute * at.alerts_warning) + ";" + number(kMinute * at.alerts_critical) +
             ";0 alerts_given_up=" + number(health.alerts.given_up()) + ";0;;0";
  if (health.disk.total > 0) {
    figures += " disk_free=" + percent_text(health.disk.percent_free()) + "%;" +
               number(at.disk_warning) + ":;" + number(at.disk_critical) + ":;0;100";
  }
  return figures;
}

std::string summary_of(const Health& health) {
  if (!health.configured.service) return "disabled in the configuration";
  std::string summary = "all enabled programs are running";
  if (health.gather.last > 0) {
    summary += ", last gather " + span_text(health.now - health.gather.last) + " ago";
  } else {
    summary += ", the history is being gathered";
  }
  return summary;
}

}  // namespace

const char* name_of(CheckStatus status) {
  constexpr std::array kNames{"OK", "WARNING", "CRITICAL", "UNKNOWN"};
  return kNames.at(static_cast<std::size_t>(status));
}

CheckResult judge(const Health& health, const Thresholds& thresholds) {
  Judge judge;
  for (const Daemon& daemon : health.daemons) {
    if (daemon.is_wanted && daemon.process == 0) {
      judge.add(CheckStatus::kCritical, daemon.name + " is not running");
    }
  }
  const Limits limits = gather_limits(health, thresholds);
  judge_gather(health, limits, judge);
  judge_alerts(health, thresholds, judge);
  judge_disk(health, thresholds, judge);
  CheckResult result = judge.result();
  result.summary = summary_of(health);
  result.figures = figures_of(health, limits, thresholds);
  return result;
}

CheckResult unknown(const std::string& why) { return {CheckStatus::kUnknown, {why}, {}, {}}; }

std::string text_of(const CheckResult& result, bool json) {
  if (json) {
    const JsonPtr root = document("check");
    put(root.get(), "status", name_of(result.status));
    put(root.get(), "exit_status", static_cast<std::int64_t>(result.status));
    JsonPtr problems(json_array());
    for (const std::string& problem : result.problems) {
      json_array_append_new(problems.get(), json_string(safe(problem).c_str()));
    }
    put(root.get(), "problems", std::move(problems));
    put(root.get(), "figures", result.figures);
    return json_for_terminal(root.get());
  }
  std::string words;
  for (const std::string& problem : result.problems) {
    if (!words.empty()) words += "; ";
    words += problem;
  }
  if (words.empty()) words = result.summary;
  words = safe(words);
  std::ranges::replace(words, '|', '/');  // begins the performance data
  std::string line = std::string("ANOMALY ") + name_of(result.status) + " - " + words;
  if (!result.figures.empty()) line += " | " + result.figures;
  return line + "\n";
}

}  // namespace corvane::ctl
