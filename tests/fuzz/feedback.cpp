// The web service's answer about anomalies: what users have said of them, read and stored.
#include <set>

#include "platform/clock.h"
#include "tests/fuzz/gather_world.h"

using corvane::text_or;
using corvane::fuzz::GatherWorld;
using corvane::fuzz::Record;
using corvane::fuzz::require;

namespace {

using corvane::test::SqlRow;

// What of each anomaly is stored. Of several elements about one the last counts.
std::map<std::string, std::string> expected_feedback(const std::vector<Record>& records) {
  std::map<std::string, std::string> expected;
  for (const Record& record : records) {
    if (text_or(record, "type", "") != "anomalyFeedback" || !record.contains("id")) continue;
    expected[record.at("id")] = text_or(record, "feedback", "") == "FALSE_POSITIVE" ? "1" : "0";
  }
  return expected;
}

void check_written_anew(GatherWorld& world, const std::vector<Record>& records) {
  const corvane::JsonPtr root(json_object());
  json_t* data = json_array();
  json_object_set_new(root.get(), "data", data);
  for (const Record& record : records) {
    json_array_append_new(data, corvane::fuzz::json_of(record).release());
  }
  std::vector<Record> again;
  world.service.parse_anomaly_feedback(corvane::fuzz::text_of_json(root), again);
  require(again == records, "feedback written anew is read alike");
}

std::vector<SqlRow> stored(const GatherWorld& world) {
  return world.rows("SELECT ANOMALY_UNIQUE_ID, FEEDBACK, CAPTURE_TIME FROM ANOMALY_DATA_FEEDBACK");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static GatherWorld world(corvane::fuzz::kMaster);
  world.clear();
  const std::string answer = corvane::fuzz::text_of(data, size);
  corvane::fake::state().answers.push_back({.result = 0, .status = 200, .body = answer});
  std::vector<Record> records;
  try {
    world.service.parse_anomaly_feedback(answer, records);
  } catch (const std::runtime_error& error) {
    const std::string reason = error.what();
    require(reason == "JSON parsing failed for qpimagelist image.", "the reason is known", reason);
    require(corvane::fuzz::json_type_of(answer) == -1, "JSON is accepted");
    world.service.capture_anomaly_feedback();
    require(stored(world).empty(), "a refused answer stores nothing");
    require(corvane::fuzz::logged(
                16, std::string("Failed to parse user feedback response ") + answer.c_str()),
            "the answer is in the log");
    return 0;
  }
  require(corvane::fuzz::json_type_of(answer) != -1, "only JSON is accepted");
  for (const Record& record : records) {
    require(!record.contains("attributes"), "attributes are members of the record");
  }
  check_written_anew(world, records);

  world.service.capture_anomaly_feedback();
  auto expected = expected_feedback(records);
  const std::string now = std::to_string(corvane::now());
  for (const SqlRow& row : stored(world)) {
    const auto found = expected.find(row[0]);
    require(found != expected.end() && found->second == row[1] && row[2] == now,
            "what is stored was said", row[0]);
    expected.erase(found);
  }
  require(expected.empty(), "what was said is stored");
  return 0;
}
