// What people are told of an anomaly and of its end, in plain sentences.
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

// Which client, policy and schedule, what differs by how much from what is usual, what it looks
// like, since when, the last good backup, how to mark it a false positive.
Words words_for_anomaly(const Anomaly& anomaly, const Told& told);

struct Ending {
  StreamKey stream;
  std::int64_t since = 0;
  std::int64_t until = 0;
  std::int64_t records = 0;
  bool adopted = false;  // the change became the new normal
};
Words words_for_end(const Ending& ending);

}  // namespace corvane::alert
