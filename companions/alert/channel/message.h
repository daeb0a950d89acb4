// What a channel sends at one time.
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
  kReport,   // for the web service: the current state of the incident
  kBegin,    // for people: a new incident
  kRise,     // the severity has risen
  kEnd,      // the incident is resolved
  kSummary,  // many messages in one
  kTest,
};
const char* name_of(Kind kind);

// What people read of a message.
struct Words {
  std::string subject;  // one line
  std::string body;     // each line ends with a line feed
};

// Texts may contain anything. The channels make them safe.
struct Message {
  std::string alert;  // its name, the same in each attempt, so that receivers can spot duplicates
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
  std::int64_t until = 0;  // 0: ongoing
  std::int64_t records = 0;
  std::string subject;
  std::string body;
  std::string details;  // a JSON object
};

// A record's details as receivers get them: one compact JSON object, valid UTF-8, without NUL.
// `parsed`: the details as JSON; null when they are not valid JSON.
std::string details_for_receivers(std::string_view details, const json_t* parsed);

// The subject with the severity in front.
std::string headline(const Message& message);

// The whole message for programs. As text: one line of valid UTF-8 without NUL.
JsonPtr to_json(const Message& message);
std::string document_of(const Message& message);

}  // namespace corvane::alert
