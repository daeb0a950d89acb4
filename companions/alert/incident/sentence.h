// The wording of an alert: of an anomaly, and of the end of an incident.
#pragma once

#include <cstdint>
#include <string>

#include "companions/alert/channel/message.h"
#include "finding/anomaly.h"

namespace corvane::alert {

// What the sentences need besides the anomaly.
struct Told {
  std::int64_t since = 0;  // the incident's first backup
  std::string anomaly_id;  // of the incident's first record, which takes the feedback
  std::string master;      // may be empty
};

// Which client, policy and schedule; which figures differ and by how much; the likely cause; since
// when; the last good backup; how to mark it as a false positive.
Words words_for_anomaly(const Anomaly& anomaly, const Told& told);

struct Ending {
  StreamKey stream;
  std::int64_t since = 0;
  std::int64_t until = 0;
  std::int64_t records = 0;
  bool adopted = false;  // the change is part of the baseline now
};
Words words_for_end(const Ending& ending);

}  // namespace corvane::alert
