#include "operator_tool/ask/anomalies.h"

#include <algorithm>
#include <utility>

#include "finding/finding_json.h"

namespace corvane::ctl {

namespace {

bool is_newer(const Anomaly& a, const Anomaly& b) {
  return a.time() != b.time() ? a.time() > b.time() : a.row.id < b.row.id;
}

FoundAnomaly read_found(AnomalyRow row) {
  JsonPtr details = parse_details(row.details);
  Anomaly anomaly = read_anomaly(std::move(row), details.get());
  return {std::move(anomaly), std::move(details)};
}

// The newest anomaly of this backup among the candidates.
std::optional<FoundAnomaly> newest_of_backup(std::vector<AnomalyRow> rows, const std::string& id) {
  std::optional<FoundAnomaly> newest;
  for (AnomalyRow& row : rows) {
    FoundAnomaly found = read_found(std::move(row));
    if (found.anomaly.finding.backup_id != id) continue;
    if (!newest || is_newer(found.anomaly, newest->anomaly)) newest = std::move(found);
  }
  return newest;
}

}  // namespace

bool AnomalyFilter::passes(const Anomaly& anomaly) const {
  if (!client.empty() && anomaly.finding.stream.client != client) return false;
  if (number_of(anomaly.finding.severity) < severity) return false;
  if (anomaly.time() < since) return false;
  return !is_reviewed || *is_reviewed == (anomaly.review() != Review::kNotReviewed);
}

const char* name_of(Review review) {
  switch (review) {
    case Review::kConfirmed:
      return "confirmed";
    case Review::kFalsePositive:
      return "false_positive";
    case Review::kNotReviewed:
      break;
  }
  return "open";
}

const char* words_for(Review review) {
  switch (review) {
    case Review::kConfirmed:
      return "confirmed";
    case Review::kFalsePositive:
      return "false positive";
    case Review::kNotReviewed:
      break;
  }
  return "not reviewed";
}

std::vector<Anomaly> read_anomalies(Connection& database, const KeepsDetails& keeps_details) {
  std::vector<Anomaly> all;
  read_anomaly_rows(database, [&](AnomalyRow&& row) {
    Anomaly anomaly = read_anomaly(std::move(row));
    if (!keeps_details || !keeps_details(anomaly)) std::string().swap(anomaly.row.details);
    all.push_back(std::move(anomaly));
  });
  std::ranges::sort(all, is_newer);
  return all;
}

std::optional<FoundAnomaly> find_anomaly(Connection& database, const std::string& id) {
  for (const std::string& name : {id, anomaly_id(id)}) {
    if (std::optional<AnomalyRow> row = find_anomaly_row(database, name)) {
      return read_found(std::move(*row));
    }
  }
  if (id.empty()) return std::nullopt;
  auto found = newest_of_backup(find_anomalies_named_after(database, id), id);
  return found ? std::move(found) : newest_of_backup(find_anomalies_that_name(database, id), id);
}

}  // namespace corvane::ctl
