// The web service's answer for one image, added to a job's record.
#include <set>

#include "tests/fuzz/gather_world.h"

using corvane::fuzz::GatherWorld;
using corvane::fuzz::Record;
using corvane::fuzz::require;

namespace {

const Record& job() {
  static const Record record{{"jobId", "7"}, {"policyName", "kept"}, {"backupId", "web01_1"}};
  return record;
}

void check_reason(const std::string& reason) {
  static const std::set<std::string> known{
      "JSON parsing failed for jobs data.", "Job details not available.",
      "image data object not found.", "Attributes details not found"};
  require(known.contains(reason), "the reason is known", reason);
}

std::string answer_of(const Record& image) {
  const corvane::JsonPtr root(json_object());
  json_object_set_new(root.get(), "data",
                      json_pack("{s:o}", "attributes", corvane::fuzz::json_of(image).release()));
  return corvane::fuzz::text_of_json(root);
}

// The same by way of a request, which reports nothing.
void check_request(GatherWorld& world, const std::string& answer, const Record& expected) {
  corvane::fake::state().answers.push_back({.result = 0, .status = 200, .body = answer});
  Record record = job();
  world.gather->get_image_data_from_backupid("web01_1", record);
  require(record == expected, "an answer adds what its text adds");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static GatherWorld world(corvane::fuzz::kMaster);
  world.clear();
  const std::string answer = corvane::fuzz::text_of(data, size);
  Record record = job();
  try {
    world.gather->parse_image_data_from_backupid(answer, record);
  } catch (const std::runtime_error& error) {
    check_reason(error.what());
    require(record == job(), "a refused answer adds nothing");
    check_request(world, answer, job());
    require(corvane::fuzz::logged(
                16, std::string("Exception occurred while getting data from backupId: ") +
                        error.what() + " "),
            "the reason is in the log", error.what());
    return 0;
  }
  for (const auto& [name, text] : job()) {
    require(record[name] == text, "what the job knows stays", name);
  }
  check_request(world, answer, record);

  Record again;
  world.gather->parse_image_data_from_backupid(answer_of(record), again);
  require(again == record, "an answer written anew is read alike");
  return 0;
}
