#include <algorithm>
#include <unordered_map>

#include "anomaly_database/stream_scan.h"
#include "finding/cause.h"
#include "finding/finding_json.h"
#include "health/health.h"
#include "operator_tool/ask/anomalies.h"
#include "operator_tool/ask/picture.h"
#include "operator_tool/commands.h"
#include "operator_tool/layout/anomaly_json.h"
#include "operator_tool/layout/json.h"
#include "operator_tool/terminal/words.h"
#include "platform/clock.h"

namespace corvane::ctl {

namespace {

AnomalyFilter filter_of(const Options& options) {
  AnomalyFilter filter;
  filter.client = options.client;
  filter.severity = options.severity;
  if (options.days > 0) filter.since = corvane::now() - options.days * kDay;
  filter.is_reviewed = options.is_reviewed;
  return filter;
}

using IncidentsByName = std::unordered_map<std::string, Incident>;

// Of all anomalies: feedback on one that is not listed may resolve an incident. Reads the history.
IncidentsByName incidents_by_name(const Context& context, const std::vector<Anomaly>& anomalies) {
  const StreamSettings settings = health::read_configuration(context.options.config).detect.stream;
  Connection& database = context.database.connection();
  const StreamSurvey streams = survey(scan_streams(database), settings, corvane::now());
  IncidentsByName by_name;
  for (Incident& incident : read_incidents(database, anomalies, streams)) {
    std::string name = incident.name;
    by_name.emplace(std::move(name), std::move(incident));
  }
  return by_name;
}

Style style_of(Review review) {
  return review == Review::kFalsePositive ? Style::kFaint : Style::kPlain;
}

std::string text_of(const Context& context, const std::vector<Anomaly>& anomalies,
                    const IncidentsByName& incidents) {
  if (anomalies.empty()) return "No anomalies.\n";
  Table table({{"Time"},
               {"Severity", false, 0, 3},
               {"Client", false, 10},
               {"Policy", false, 8, 5},
               {"Schedule", false, 6, 6},
               {"Cause", false, 10},
               {"Review", false, 0, 4},
               {"Incident", false, 0, 2},
               {"ID", false, 24, 7}});
  for (const Anomaly& anomaly : anomalies) {
    const Finding& finding = anomaly.finding;
    const SeverityWords severity = severity_words(finding.severity);
    const bool is_resolved = incidents.at(anomaly.incident).is_resolved();
    table.add({{time_text(anomaly.time(), context.options.utc)},
               {severity.words, severity.style},
               {finding.stream.client},
               {finding.stream.policy},
               {finding.stream.schedule_name},
               {noun_for(finding.likeliest_cause())},
               {words_for(anomaly.review()), style_of(anomaly.review())},
               {is_resolved ? "resolved" : "ongoing", is_resolved ? Style::kFaint : Style::kPlain},
               {anomaly.row.id}});
  }
  return table.text(context.terminal) + "\n" +
         counted(static_cast<std::int64_t>(anomalies.size()), "anomaly", "anomalies") + "\n";
}

std::string json_of(const std::vector<Anomaly>& anomalies, const IncidentsByName& incidents) {
  const JsonPtr root = document("anomalies");
  JsonPtr array(json_array());
  for (const Anomaly& anomaly : anomalies) {
    JsonPtr object = to_json(anomaly, parse_details(anomaly.row.details));
    put(object.get(), "incident_over", incidents.at(anomaly.incident).is_resolved());
    append(array.get(), std::move(object));
  }
  put(root.get(), "anomalies", std::move(array));
  return json_for_terminal(root.get());
}

}  // namespace

std::string run_anomalies(const Context& context) {
  const Options& options = context.options;
  const AnomalyFilter filter = filter_of(options);
  const auto is_asked_for = [&](const Anomaly& anomaly) { return filter.passes(anomaly); };
  // Read once: the list and its incidents must be of the same moment.
  std::vector<Anomaly> anomalies =
      read_anomalies(context.database.connection(),
                     [&](const Anomaly& anomaly) { return options.json && is_asked_for(anomaly); });
  IncidentsByName incidents;
  if (std::ranges::any_of(anomalies, is_asked_for)) {
    incidents = incidents_by_name(context, anomalies);
  }
  std::erase_if(anomalies, [&](const Anomaly& anomaly) {
    return !is_asked_for(anomaly) ||
           (options.is_resolved &&
            incidents.at(anomaly.incident).is_resolved() != *options.is_resolved);
  });
  return options.json ? json_of(anomalies, incidents) : text_of(context, anomalies, incidents);
}

}  // namespace corvane::ctl
