// How urgent a finding is.
#pragma once

#include <cstdint>

namespace corvane {

// The numbers stand in JSON documents, databases and settings.
enum class Severity { kNone = 0, kLookAtIt = 1, kImportant = 2, kActNow = 3 };

constexpr std::int64_t number_of(Severity severity) { return static_cast<std::int64_t>(severity); }

// Of a finding: what is below or above the scale is at its end.
constexpr Severity severity_of(std::int64_t number) {
  return number <= 1 ? Severity::kLookAtIt : number == 2 ? Severity::kImportant : Severity::kActNow;
}

constexpr const char* words_for(Severity severity) {
  switch (severity) {
    case Severity::kActNow:
      return "act now";
    case Severity::kImportant:
      return "important";
    case Severity::kLookAtIt:
    case Severity::kNone:
      break;
  }
  return "look at it";
}

}  // namespace corvane
