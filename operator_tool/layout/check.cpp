#include "operator_tool/layout/check.h"

#include <algorithm>
#include <array>
#include <functional>
#include <map>

#include "finding/severity.h"
#include "finding/words.h"
#include "health/gaps.h"
#include "operator_tool/layout/health_json.h"
#include "operator_tool/layout/json.h"
#include "operator_tool/terminal/terminal.h"
#include "operator_tool/terminal/words.h"

namespace corvane::ctl {

namespace {

std::string figures_of(const health::Health& health, const health::Thresholds& at) {
  const auto number = [](std::int64_t value) { return std::to_string(value); };
  const health::Limits gather = gather_limits(health, at);
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
    figures += " disk_free=" + health::percent_text(health.disk.percent_free()) + "%;" +
               number(at.disk_warning) + ":;" + number(at.disk_critical) + ":;0;100";
  }
  return figures;
}

std::string summary_of(const health::Health& health) {
  if (!health.configured.service) return "disabled in the configuration";
  std::string summary = "all enabled programs are running";
  if (health.gather.last > 0) {
    summary += ", last gather " + span_text(health.now - health.gather.last) + " ago";
  } else {
    summary += ", the history is being gathered";
  }
  return summary;
}

// Problems, else the summary; then the incidents.
std::string words_of(const CheckResult& result) {
  std::string words;
  const auto add = [&](const std::string& more) {
    if (more.empty()) return;
    if (!words.empty()) words += "; ";
    words += more;
  };
  for (const health::Problem& problem : result.problems) add(problem.words);
  if (words.empty()) words = result.summary;
  add(result.incidents);
  return words;
}

}  // namespace

const char* name_of(CheckStatus status) {
  constexpr std::array kNames{"OK", "WARNING", "CRITICAL", "UNKNOWN"};
  return kNames.at(static_cast<std::size_t>(status));
}

CheckStatus status_of(const std::vector<health::Problem>& problems) {
  if (problems.empty()) return CheckStatus::kOk;
  return problems.front().level == health::Level::kCritical ? CheckStatus::kCritical
                                                            : CheckStatus::kWarning;
}

CheckResult judge(const health::Health& health, const health::Thresholds& thresholds) {
  CheckResult result;
  result.problems = problems_of(health, thresholds);
  result.status = status_of(result.problems);
  result.summary = summary_of(health);
  result.figures = figures_of(health, thresholds);
  return result;
}

CheckResult unknown(const std::string& why) {
  return {CheckStatus::kUnknown, {{health::Level::kCritical, "unknown", why}}, {}, {}, {}};
}

CheckResult without_database(const char* name, const std::string& why) {
  return {CheckStatus::kCritical,
          {{health::Level::kCritical, name, health::without_full_stop(why)}},
          {},
          {},
          {}};
}

std::string incidents_words(const Picture& picture) {
  const Incident* latest = nullptr;
  std::map<Severity, std::int64_t, std::greater<>> counts;
  for (const Incident& incident : picture.incidents) {
    if (incident.is_resolved()) continue;
    if (latest == nullptr) latest = &incident;
    ++counts[incident.severity];
  }
  if (latest == nullptr) return {};
  std::string words = counted(picture.ongoing_incidents(), "ongoing incident", "ongoing incidents");
  const char* before = " (";
  for (const auto& [severity, count] : counts) {
    words += before + std::to_string(count) + " " + words_for(severity);
    before = ", ";
  }
  return words + "), the latest of " + latest->stream.client;
}

std::string verdict_of(const CheckResult& result) {
  return name_of(result.status) + std::string(": ") + words_of(result);
}

std::string text_of(const CheckResult& result, bool json) {
  if (json) {
    const JsonPtr root = document("check");
    put(root.get(), "status", name_of(result.status));
    put(root.get(), "exit_status", static_cast<std::int64_t>(result.status));
    JsonPtr problems(json_array());
    for (const health::Problem& problem : result.problems) {
      append(problems.get(), JsonPtr(json_string(safe(problem.words).c_str())));
    }
    put(root.get(), "problems", std::move(problems));
    put_problems(root.get(), result.problems);
    put(root.get(), "incidents", result.incidents);
    put(root.get(), "figures", result.figures);
    return json_for_terminal(root.get());
  }
  std::string words = words_of(result);
  words = safe(words);
  std::ranges::replace(words, '|', '/');  // begins the performance data
  std::string line = std::string("ANOMALY ") + name_of(result.status) + " - " + words;
  if (!result.figures.empty()) line += " | " + result.figures;
  return line + "\n";
}

}  // namespace corvane::ctl
