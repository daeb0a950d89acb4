#include "finding/stream_rules.h"

#include "finding/words.h"

namespace corvane {

const char* name_of(StreamState state) {
  switch (state) {
    case StreamState::kLearning:
      return "learning";
    case StreamState::kDormant:
      return "dormant";
    case StreamState::kJudged:
      break;
  }
  return "judged";
}

StreamState state_of(std::size_t that_matter, std::int64_t last, std::int64_t now,
                     const StreamSettings& settings) {
  if (last > 0 && now - last > settings.days_to_ignore * kDay) return StreamState::kDormant;
  return that_matter < settings.min_observations ? StreamState::kLearning : StreamState::kJudged;
}

std::string words_for(StreamState state, std::size_t that_matter, const StreamSettings& settings) {
  std::string words = name_of(state);
  if (state != StreamState::kLearning) return words;
  return words + " " + std::to_string(that_matter) + " of " +
         std::to_string(settings.min_observations);
}

}  // namespace corvane
