#include "companions/alert/message.h"

#include <jansson.h>

#include "companions/alert/plain_text.h"
#include "companions/common/json_text.h"
#include "companions/common/valid_utf8.h"
#include "platform/c_handles.h"

namespace corvane::alert {

namespace {

constexpr int kSchemaVersion = 1;

void put(json_t* object, const char* name, const std::string& text) {
  const std::string valid = valid_utf8(text);
  json_object_set_new(object, name, json_stringn(valid.data(), valid.size()));
}

void put(json_t* object, const char* name, std::int64_t number) {
  json_object_set_new(object, name, json_integer(number));
}

json_t* parsed_details(const std::string& details) {
  json_t* parsed = json_loadb(details.data(), details.size(), 0, nullptr);
  if (json_is_object(parsed)) return parsed;
  json_decref(parsed);
  return json_object();
}

}  // namespace

const char* kind_name(Kind kind) {
  switch (kind) {
    case Kind::kReport:
      return "report";
    case Kind::kBegin:
      return "begin";
    case Kind::kRise:
      return "rise";
    case Kind::kEnd:
      return "end";
    case Kind::kSummary:
      return "summary";
    case Kind::kTest:
      return "test";
  }
  return "";
}

const char* severity_in_words(int severity) {
  return severity >= 3 ? "act now" : severity == 2 ? "important" : "look at it";
}

std::string headline(const Message& message) {
  if (message.kind == Kind::kEnd || message.kind == Kind::kTest) return message.subject;
  return std::string("[") + severity_in_words(message.severity) + "] " +
         (message.kind == Kind::kRise ? "Now worse: " : "") + message.subject;
}

std::string document_of(const Message& message) {
  const JsonPtr root(json_object());
  json_t* into = root.get();
  put(into, "schema", kSchemaVersion);
  put(into, "alert", message.alert);
  put(into, "kind", kind_name(message.kind));
  put(into, "state", message.until > 0 ? "ended" : "open");
  put(into, "severity", message.severity);
  put(into, "subject", headline(message));
  put(into, "text", message.body);
  put(into, "id", message.anomaly_id);
  put(into, "incident", message.incident);
  put(into, "clientName", message.client);
  put(into, "policyName", message.policy);
  put(into, "scheduleName", message.schedule);
  put(into, "cause", message.cause);
  put(into, "created", message.created);
  put(into, "since", message.since);
  if (message.until > 0) put(into, "until", message.until);
  put(into, "records", message.records);
  json_object_set_new(into, "details", parsed_details(message.details));
  return json_safe(json_text(into));
}

}  // namespace corvane::alert
