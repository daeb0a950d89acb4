#include "operator_tool/ask/picture.h"

#include <algorithm>
#include <unordered_set>

#include "anomaly_database/stream_scan.h"
#include "operator_tool/ask/anomalies.h"

namespace corvane::ctl {

std::vector<Incident> read_incidents(Connection& database, const std::vector<Anomaly>& anomalies,
                                     const StreamSurvey& streams) {
  std::unordered_set<std::string> false_positives;
  read_feedback(database, [&](const std::string& id, Feedback feedback) {
    if (feedback == Feedback::kFalsePositive) false_positives.insert(id);
  });
  return incidents_of(anomalies,
                      {[&](const std::string& key) { return streams.last_accepted(key); },
                       [&](const std::string& id) { return false_positives.contains(id); }});
}

std::int64_t Picture::ongoing_incidents() const {
  return std::ranges::count(incidents, false, &Incident::is_resolved);
}

std::int64_t Picture::count(Review review) const {
  return std::ranges::count(anomalies, review, &Anomaly::review);
}

Picture take_picture(Connection& database, const StreamSettings& settings, std::int64_t now) {
  Picture picture;
  picture.streams = survey(scan_streams(database), settings, now);
  picture.anomalies = read_anomalies(database);
  picture.incidents = read_incidents(database, picture.anomalies, picture.streams);
  return picture;
}

}  // namespace corvane::ctl
