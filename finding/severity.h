// How urgent a finding is.
#pragma once

#include <cstdint>

namespace corvane {

// The numbers are stored in JSON documents, databases and settings.
enum class Severity { kNone = 0, kWarning = 1, kMajor = 2, kCritical = 3 };

constexpr std::int64_t number_of(Severity severity) { return static_cast<std::int64_t>(severity); }

// Numbers below or above the scale are the lowest or highest severity.
constexpr Severity severity_of(std::int64_t number) {
  return number <= 1 ? Severity::kWarning : number == 2 ? Severity::kMajor : Severity::kCritical;
}

constexpr const char* words_for(Severity severity) {
  switch (severity) {
    case Severity::kCritical:
      return "critical";
    case Severity::kMajor:
      return "major";
    case Severity::kWarning:
    case Severity::kNone:
      break;
  }
  return "warning";
}

}  // namespace corvane
