// A record of an anomaly as its readers take it, and what people and programs are told of it. The
// input, separated by NULs: the record's id, its client, its details; a webhook gets what is left.
#include "companions/alert/channel/message.h"
#include "companions/alert/incident/sentence.h"
#include "finding/anomaly.h"
#include "finding/finding_json.h"
#include "platform/c_handles.h"
#include "tests/fuzz/fuzz.h"
#include "util/json.h"
#include "util/valid_utf8.h"

using corvane::Anomaly;
using corvane::alert::Words;
using corvane::fuzz::require;

namespace {

void check_text(const std::string& text, bool one_line) {
  require(corvane::valid_utf8(text) == text, "people get UTF-8", text);
  for (const char letter : text) {
    const auto byte = static_cast<unsigned char>(letter);
    const bool shows = (byte >= 0x20 && byte != 0x7F) || (letter == '\n' && !one_line);
    require(shows, "no control character reaches people", text);
  }
}

void check_document(const std::string& text) {
  const corvane::JsonPtr root(json_loadb(text.data(), text.size(), 0, nullptr));
  require(json_is_object(root.get()), "programs get an object without NUL", text);
  require(text.find('\n') == std::string::npos, "on one line", text);
  require(json_is_object(json_object_get(root.get(), "details")), "with the details", text);
}

void check_details(const std::string& details) {
  const corvane::JsonPtr root(json_loadb(details.data(), details.size(), 0, nullptr));
  require(json_is_object(root.get()), "details are an object", details);
}

// Numbers are rounded when they are written first; from then on nothing changes.
void check_round_trip(const corvane::Finding& finding) {
  const corvane::JsonPtr first = corvane::to_json(finding);
  const corvane::JsonPtr second = corvane::to_json(corvane::from_json(first.get()));
  const std::string text = corvane::json_text(second.get());
  const corvane::JsonPtr read = corvane::parse_details(text);
  require(read != nullptr, "what is written can be read", text);
  const corvane::JsonPtr third = corvane::to_json(corvane::from_json(read.get()));
  require(corvane::json_text(third.get()) == text, "and written alike", text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto parts = corvane::fuzz::parts_of(corvane::fuzz::text_of(data, size), 3);
  corvane::AnomalyRow row;
  row.id = parts[0];
  row.client = parts[1];
  row.details = parts[2];
  const corvane::JsonPtr parsed = corvane::parse_details(row.details);
  const Anomaly anomaly = corvane::read_anomaly(std::move(row), parsed.get());
  const std::int64_t severity = corvane::number_of(anomaly.finding.severity);
  require(severity >= 1 && severity <= 3, "severities are 1 to 3");
  check_round_trip(anomaly.finding);
  const Words words =
      corvane::alert::words_for_anomaly(anomaly, {anomaly.time(), anomaly.row.id, parts[1]});
  check_text(words.subject, true);
  check_text(words.body, false);
  corvane::alert::Message message;
  message.anomaly_id = parts[0];
  message.incident = anomaly.incident;
  message.client = anomaly.finding.stream.client;
  message.policy = anomaly.finding.stream.policy;
  message.cause =
      anomaly.finding.likeliest_cause() ? corvane::id_of(*anomaly.finding.likeliest_cause()) : "";
  message.subject = words.subject;
  message.body = words.body;
  message.details = corvane::alert::details_for_receivers(parts[2], parsed.get());
  check_details(message.details);
  check_text(corvane::alert::headline(message), true);
  check_document(corvane::alert::document_of(message));
  return 0;
}
