// What one channel is told at one time.
#pragma once

#include <cstdint>
#include <string>

namespace corvane::alert {

// Kept as numbers in the state database.
enum class Kind {
  kReport,   // for the web service: the incident as it is now
  kBegin,    // for people: an incident
  kRise,     // its severity has risen
  kEnd,      // it is over
  kSummary,  // many at once
  kTest,
};
const char* kind_name(Kind kind);

// Texts may hold anything; they are made safe where they go out.
struct Message {
  std::string alert;  // its name, the same in each attempt: receivers know a repetition by it
  Kind kind = Kind::kBegin;
  int severity = 1;
  std::int64_t created = 0;
  std::string anomaly_id;  // of the incident's first record; empty for a summary
  std::string incident;
  std::string client;
  std::string policy;
  std::string schedule;
  std::string cause;
  std::int64_t since = 0;
  std::int64_t until = 0;  // 0: it goes on
  std::int64_t records = 0;
  std::string subject;
  std::string body;
  std::string details;  // a JSON object
};

// "act now", "important" or "look at it".
const char* severity_in_words(int severity);

// The subject with how urgent it is in front.
std::string headline(const Message& message);

// The whole message as one JSON object for programs, one line of valid UTF-8 without NUL.
std::string document_of(const Message& message);

}  // namespace corvane::alert
