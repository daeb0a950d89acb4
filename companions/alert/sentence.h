// What people read: the same plain sentences everywhere.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "companions/alert/anomaly.h"

namespace corvane::alert {

struct Words {
  std::string subject;  // one line
  std::string body;     // lines, each ended
};

// Which client, policy and schedule, what differs by how much from what is usual, what it looks
// like, since when, the last good backup, how to mark it a false positive. `since` is the
// incident's first backup; `master` may be empty.
Words words_for_anomaly(const Anomaly& anomaly, std::int64_t since, const std::string& master);

struct Ending {
  StreamKey stream;
  std::int64_t since = 0;
  std::int64_t until = 0;
  std::int64_t records = 0;
  bool adopted = false;  // the change became the new normal
};
Words words_for_end(const Ending& ending);

// The cause of that id for a list; "no known cause" for any other.
std::string_view cause_in_words(std::string_view id);

// "1 client", "3 clients".
std::string counted(std::int64_t number, const std::string& one, const std::string& many);

}  // namespace corvane::alert
