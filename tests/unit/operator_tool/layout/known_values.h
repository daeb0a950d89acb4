// Health and picture of which every value is another, so that no two can be taken for each other.
#pragma once

#include "health/health.h"
#include "operator_tool/ask/picture.h"
#include "platform/program_names.h"
#include "tests/support/test_backup.h"

namespace corvane::ctl {

using namespace health;  // NOLINT(google-build-using-namespace)
using test::kNow;

inline alert::ChannelStatus known_channel(const std::string& name, std::int64_t base) {
  return {.name = name,
          .waiting = base + 1,
          .oldest = kNow - 60 * (base + 2),
          .given_up = base + 3,
          .taken = base + 4,
          .failures = base + 5,
          .paused_until = kNow + base,
          .failing_since = kNow - base - 6,
          .last_success = kNow - base - 7,
          .last_error = name + " is down",
          .due = kNow - 60 * (base + 1)};
}

inline Health known_health() {
  Health health;
  health.now = kNow;
  health.daemons = {{kManagementProgram, true, 4711, kNow - 3600 * 5, 501},
                    {kDetectionProgram, false, 4712, kNow - 3600 * 6, 502, kNow - 33, 4},
                    {kAlertProgram, true, 0, 0, 503, kNow - 44}};
  health.gather.last = kNow - 600;
  health.gather.next = kNow + 420;
  health.gather.queued = 12;
  health.gather.log = {.from = kNow - 7200,
                       .gathers = 13,
                       .failed = 4,
                       .last_failed = kNow - 1800,
                       .last_end = kNow - 590,
                       .last_seconds = 9};
  health.ledger.last_look = kNow - 120;
  health.ledger.gathers = {.failed_in_a_row = 2,
                           .first_failed = kNow - 3000,
                           .reason = "HTTP 503",
                           .last_complete = kNow - 3600,
                           .open_since = kNow - 150};
  health.ledger.holes = {{{kNow - 9000, kNow - 8001}, kNow - 1200, 3, kNow + 60, "HTTP 500"},
                         {{kNow - 7000, kNow - 6501}, kNow - 1100, 0, 0, ""}};
  health.ledger.missing = {{"key", {kNow - 500, kNow - 400}, kNow - 300, 1, kNow}};
  health.ledger.lost = {{kNow - 90000, kNow - 80000}, {1, 2}, {5, 6}, {8, 9}};
  health.ledger.acts = {{kNow - 200, "3 backups were gathered again"}};
  health.ledger.unjudged_since = kNow - 77;
  health.ledger.given_up = 3;
  health.ledger.healed_at = kNow - 4000;
  health.ledger.unaudited_since = kNow - 89;
  health.backlog = {
      .unjudged = 7, .oldest_unprocessed = kNow - 88, .oldest_critical = kNow - 66, .criticals = 2};
  health.configured.interval_minutes = 17;
  health.alerts.is_known = true;
  health.alerts.channels = {known_channel("mail", 10), known_channel("web", 30)};
  health.service_database = OpenFile::kOpen;
  health.database_bytes = std::int64_t{900} << 20;
  health.disk = {.total = std::int64_t{2000} << 30, .available = std::int64_t{700} << 30};
  return health;
}

// Streams: 1 learning, 2 judged, 3 dormant. Anomalies: not reviewed 4 critical, confirmed 2 major,
// false positives 1 warning and 2 critical. Incidents: 5 ongoing, 1 resolved.
inline Picture known_picture() {
  Picture picture;
  StreamSurvey& streams = picture.streams;
  for (const auto& [state, count] : {std::pair{StreamState::kLearning, 1},
                                     {StreamState::kJudged, 2},
                                     {StreamState::kDormant, 3}})
    for (int i = 0; i < count; ++i) streams.streams.emplace_back().state = state;
  streams.history_rows = 1234;
  streams.process_rows = 56;
  streams.waiting_rows = 7;
  streams.oldest_waiting = kNow - 300;
  const auto add = [&](Severity severity, std::optional<Feedback> feedback, int count) {
    for (int i = 0; i < count; ++i) {
      Anomaly& anomaly = picture.anomalies.emplace_back();
      anomaly.finding.severity = severity;
      anomaly.row.feedback = feedback;
    }
  };
  add(Severity::kCritical, std::nullopt, 4);
  add(Severity::kMajor, Feedback::kNoFalsePositive, 2);
  add(Severity::kWarning, Feedback::kFalsePositive, 1);
  add(Severity::kCritical, Feedback::kFalsePositive, 2);
  picture.incidents.resize(6);
  picture.incidents[0].stream.client = "web01";
  picture.incidents[2].end = IncidentEnd::kAdopted;
  return picture;
}

}  // namespace corvane::ctl
