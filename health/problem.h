// One thing that is wrong, in words for people.
#pragma once

#include <string>

namespace corvane::health {

enum class Level { kWarning = 1, kCritical = 2 };
// "warning", "critical": in JSON documents and as a label of metrics.
const char* name_of(Level level);

struct Problem {
  Level level = Level::kWarning;
  std::string name;   // stable: in JSON documents
  std::string words;  // a part of a sentence, without a full stop

  friend bool operator==(const Problem&, const Problem&) = default;
};

}  // namespace corvane::health
