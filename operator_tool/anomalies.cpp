#include "operator_tool/anomalies.h"

#include <algorithm>

#include "companions/detect/details.h"
#include "operator_tool/json.h"

namespace corvane::ctl {

namespace {

constexpr char kReadAll[] =
    "SELECT a.ANOMALY_UNIQUE_ID, a.ANOMALY_DETAILS, a.DETECTION_KEY, a.CLIENT, a.DETECTION_TIME, "
    "a.PROCESSED, f.ANOMALY_UNIQUE_ID IS NOT NULL, f.FEEDBACK, f.CAPTURE_TIME "
    "FROM ANOMALY_DATA a LEFT JOIN ANOMALY_DATA_FEEDBACK f "
    "ON f.ANOMALY_UNIQUE_ID = a.ANOMALY_UNIQUE_ID";

// Details that are too long or no JSON have become an object without it.
std::string backup_id_of(const alert::Anomaly& anomaly) {
  const JsonPtr root(json_loads(anomaly.details.c_str(), 0, nullptr));
  return text_member(root.get(), "backup_id");
}

FoundAnomaly read_row(const Query& row) {
  FoundAnomaly found;
  found.anomaly =
      alert::read_anomaly({row.text(0), row.text(1), row.text(2), row.text(3), row.integer(4)});
  found.backup_id = backup_id_of(found.anomaly);
  found.is_processed = row.integer(5) != 0;
  if (row.integer(6) != 0) {
    found.opinion = row.integer(7) != 0 ? Opinion::kFalsePositive : Opinion::kConfirmed;
    found.judged_at = row.integer(8);
  }
  return found;
}

bool passes(const FoundAnomaly& found, const AnomalyFilter& filter) {
  if (!filter.client.empty() && found.anomaly.stream.client != filter.client) return false;
  if (found.anomaly.severity < filter.severity) return false;
  if (found.anomaly.known_time() < filter.since) return false;
  return !filter.is_judged || *filter.is_judged == (found.opinion != Opinion::kOpen);
}

bool is_newer(const FoundAnomaly& a, const FoundAnomaly& b) {
  const std::int64_t at = a.anomaly.known_time();
  const std::int64_t bt = b.anomaly.known_time();
  return at != bt ? at > bt : a.anomaly.id < b.anomaly.id;
}

}  // namespace

const char* name_of(Opinion opinion) {
  switch (opinion) {
    case Opinion::kConfirmed:
      return "confirmed";
    case Opinion::kFalsePositive:
      return "false_positive";
    case Opinion::kOpen:
      break;
  }
  return "open";
}

const char* words_for(Opinion opinion) {
  return opinion == Opinion::kFalsePositive ? "false alarm" : name_of(opinion);
}

std::vector<FoundAnomaly> read_anomalies(Database& database, const AnomalyFilter& filter) {
  std::vector<FoundAnomaly> all;
  Query& rows = database.query(kReadAll);
  while (rows.step()) {
    FoundAnomaly found = read_row(rows);
    if (passes(found, filter)) all.push_back(std::move(found));
  }
  std::ranges::sort(all, is_newer);
  return all;
}

std::optional<FoundAnomaly> find_anomaly(Database& database, const std::string& id) {
  std::vector<FoundAnomaly> all = read_anomalies(database, {});
  for (const std::string& name : {id, detect::anomaly_id(id)}) {
    const auto named = std::ranges::find_if(
        all, [&](const FoundAnomaly& found) { return found.anomaly.id == name; });
    if (named != all.end()) return *named;
  }
  const auto of_backup =
      std::ranges::find_if(all, [&](const FoundAnomaly& found) { return found.backup_id == id; });
  if (of_backup != all.end()) return *of_backup;
  return std::nullopt;
}

}  // namespace corvane::ctl
