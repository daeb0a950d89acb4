// All streams, anomalies and incidents of the database, as of one look.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "finding/anomaly.h"
#include "finding/incident.h"
#include "finding/stream_survey.h"
#include "sqlite/connection.h"

namespace corvane::ctl {

struct Picture {
  StreamSurvey streams;
  std::vector<Anomaly> anomalies;   // the newest first; without their details
  std::vector<Incident> incidents;  // the latest first

  std::int64_t ongoing_incidents() const;
  std::int64_t count(Review review) const;
};

// What one incident is, and over, by the feedback and by these streams. Throws QueryError.
std::vector<Incident> read_incidents(Connection& database, const std::vector<Anomaly>& anomalies,
                                     const StreamSurvey& streams);

// Reads the history once. Throws QueryError.
Picture take_picture(Connection& database, const StreamSettings& settings, std::int64_t now);

}  // namespace corvane::ctl
