// What one channel is told at one time.
#pragma once

#include <jansson.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "finding/severity.h"
#include "platform/c_handles.h"

namespace corvane::alert {

// Kept as numbers in the alerts' database.
enum class Kind {
  kReport,   // for the web service: the incident as it is now
  kBegin,    // for people: an incident
  kRise,     // its severity has risen
  kEnd,      // it is over
  kSummary,  // many at once
  kTest,
};
const char* name_of(Kind kind);

// What people read of it.
struct Words {
  std::string subject;  // one line
  std::string body;     // lines, each ended
};

// Texts may hold anything; they are made safe where they go out.
struct Message {
  std::string alert;  // its name, the same in each attempt: receivers know a repetition by it
  Kind kind = Kind::kBegin;
  Severity severity = Severity::kWarning;
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

// What receivers get of a record's details: one compact JSON object, valid UTF-8, without NUL.
// `parsed`: the details as JSON; null when they cannot be read.
std::string details_for_receivers(std::string_view details, const json_t* parsed);

// The subject with how urgent it is in front.
std::string headline(const Message& message);

// The whole message for programs; as text one line of valid UTF-8 without NUL.
JsonPtr to_json(const Message& message);
std::string document_of(const Message& message);

}  // namespace corvane::alert
