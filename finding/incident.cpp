#include "finding/incident.h"

#include <algorithm>
#include <map>

namespace corvane {

namespace {

void add_record(const Anomaly& anomaly, Incident& incident) {
  const Finding& finding = anomaly.finding;
  const std::int64_t time = anomaly.time();
  const bool is_first = incident.records++ == 0;
  incident.first = is_first ? time : std::min(incident.first, time);
  if (is_first || time > incident.last ||
      (time == incident.last && anomaly.row.id < incident.latest)) {
    incident.last = time;
    incident.latest = anomaly.row.id;
    incident.detection_key = anomaly.row.detection_key;
    incident.stream = finding.stream;
    incident.cause = finding.likeliest_cause();
    incident.summary = finding.summary;
  }
  incident.severity = std::max(incident.severity, finding.severity);
  incident.facts.has_false_positive |= anomaly.review() == Review::kFalsePositive;
  incident.facts.is_adopted |= finding.adopted.has_value();
  incident.facts.last_accepted = std::max(incident.facts.last_accepted, finding.usual_since);
}

void complete(Incident& incident, const IncidentContext& context) {
  incident.first_record = first_record_of(incident.name);
  IncidentFacts& facts = incident.facts;
  facts.last = incident.last;
  facts.last_accepted =
      std::max(facts.last_accepted, context.last_accepted(incident.detection_key));
  facts.has_false_positive |= context.is_false_positive(incident.first_record);
  incident.end = end_of(facts);
}

}  // namespace

bool continues_incident(std::int64_t former_anomalous, std::optional<std::int64_t> last_accepted,
                        bool is_false_positive) {
  return !is_false_positive && !(last_accepted && *last_accepted > former_anomalous);
}

IncidentEnd end_of(const IncidentFacts& facts) {
  if (facts.has_false_positive) return IncidentEnd::kFalsePositive;
  if (facts.is_adopted) return IncidentEnd::kAdopted;
  return facts.last_accepted > facts.last ? IncidentEnd::kUsualBackup : IncidentEnd::kNone;
}

std::vector<Incident> incidents_of(const std::vector<Anomaly>& anomalies,
                                   const IncidentContext& context) {
  std::map<std::string, Incident> by_name;
  for (const Anomaly& anomaly : anomalies) add_record(anomaly, by_name[anomaly.incident]);
  std::vector<Incident> all;
  all.reserve(by_name.size());
  for (auto& [name, incident] : by_name) {
    incident.name = name;
    complete(incident, context);
    all.push_back(std::move(incident));
  }
  std::ranges::stable_sort(all, std::ranges::greater{}, &Incident::last);
  return all;
}

}  // namespace corvane
