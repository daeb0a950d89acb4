#include "finding/anomaly.h"

#include <string_view>

#include "finding/finding_json.h"

namespace corvane {

namespace {

constexpr std::string_view kAnomalyPrefix = "anomaly_";
constexpr std::string_view kIncidentPrefix = "incident_";
constexpr std::size_t kMostName = 4096;

}  // namespace

Review Anomaly::review() const {
  if (!row.feedback) return Review::kNotReviewed;
  return *row.feedback == Feedback::kFalsePositive ? Review::kFalsePositive : Review::kConfirmed;
}

Anomaly read_anomaly(AnomalyRow row) {
  const JsonPtr details = parse_details(row.details);
  return read_anomaly(std::move(row), details.get());
}

Anomaly read_anomaly(AnomalyRow row, const json_t* details) {
  Anomaly anomaly;
  anomaly.finding = from_json(details);
  if (!anomaly.finding.has_stream) anomaly.finding.stream.client = row.client.substr(0, kMostName);
  anomaly.incident = anomaly.finding.incident.empty() ? row.id : anomaly.finding.incident;
  anomaly.row = std::move(row);
  return anomaly;
}

std::string anomaly_id(const std::string& unique_key) {
  return std::string(kAnomalyPrefix) + unique_key;
}

std::string incident_name(const std::string& first_unique_key) {
  return std::string(kIncidentPrefix) + first_unique_key;
}

std::string unique_key_of(const std::string& anomaly_id) {
  return anomaly_id.starts_with(kAnomalyPrefix) ? anomaly_id.substr(kAnomalyPrefix.size())
                                                : std::string();
}

std::string first_record_of(const std::string& incident) {
  return incident.starts_with(kIncidentPrefix) ? anomaly_id(incident.substr(kIncidentPrefix.size()))
                                               : std::string();
}

}  // namespace corvane
