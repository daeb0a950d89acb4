#include "companions/alert/channel/message.h"

#include <jansson.h>

#include "platform/c_handles.h"
#include "util/json.h"

namespace corvane::alert {

namespace {

constexpr int kSchemaVersion = 1;
constexpr std::size_t kMostForeign = 4096;  // bytes of details that cannot be read

JsonPtr parsed_details(const std::string& details) {
  JsonPtr parsed = parse_json_object(details, std::string::npos);
  return parsed == nullptr ? JsonPtr(json_object()) : std::move(parsed);
}

}  // namespace

const char* name_of(Kind kind) {
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

std::string details_for_receivers(std::string_view details, const json_t* parsed) {
  if (parsed != nullptr) return without_nul(json_text(parsed));
  const JsonPtr root(json_object());
  put(root.get(), "unreadable", details.substr(0, kMostForeign));
  return without_nul(json_text(root.get()));
}

std::string headline(const Message& message) {
  if (message.kind == Kind::kEnd || message.kind == Kind::kTest) return message.subject;
  return std::string("[") + words_for(message.severity) + "] " +
         (message.kind == Kind::kRise ? "Now worse: " : "") + message.subject;
}

JsonPtr to_json(const Message& message) {
  JsonPtr root(json_object());
  json_t* into = root.get();
  put(into, "schema", std::int64_t{kSchemaVersion});
  put(into, "alert", message.alert);
  put(into, "kind", name_of(message.kind));
  put(into, "state", message.until > 0 ? "ended" : "open");
  put(into, "severity", number_of(message.severity));
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
  put(into, "details", parsed_details(message.details));
  return root;
}

std::string document_of(const Message& message) {
  return without_nul(json_text(to_json(message).get()));
}

}  // namespace corvane::alert
