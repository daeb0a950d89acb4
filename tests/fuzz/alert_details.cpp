// The alerts' reading of a record of an anomaly, and what people and programs are told of it. The
// input, separated by NULs: the record's id, its client, its details; a webhook gets what is left.
#include "companions/alert/anomaly.h"
#include "companions/alert/message.h"
#include "companions/alert/sentence.h"
#include "companions/common/valid_utf8.h"
#include "platform/c_handles.h"
#include "tests/fuzz/fuzz.h"

using corvane::alert::Anomaly;
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

void check_details(const Anomaly& anomaly) {
  const corvane::JsonPtr details(
      json_loadb(anomaly.details.data(), anomaly.details.size(), 0, nullptr));
  require(json_is_object(details.get()), "details are an object", anomaly.details);
  require(anomaly.severity >= 1 && anomaly.severity <= 3, "severities are 1 to 3");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto parts = corvane::fuzz::parts_of(corvane::fuzz::text_of(data, size), 3);
  const Anomaly anomaly = corvane::alert::read_anomaly(
      {.id = parts[0], .details = parts[2], .detection_key = "", .client = parts[1]});
  check_details(anomaly);
  corvane::alert::is_adopted(parts[2]);
  const Words words = corvane::alert::words_for_anomaly(anomaly, anomaly.time, parts[1]);
  check_text(words.subject, true);
  check_text(words.body, false);
  corvane::alert::Message message;
  message.anomaly_id = parts[0];
  message.incident = anomaly.incident;
  message.client = anomaly.stream.client;
  message.policy = anomaly.stream.policy;
  message.cause = anomaly.cause;
  message.subject = words.subject;
  message.body = words.body;
  message.details = anomaly.details;
  check_text(corvane::alert::headline(message), true);
  check_document(corvane::alert::document_of(message));
  return 0;
}
