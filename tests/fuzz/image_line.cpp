// A line of the image-list tool, read and stored.
#include "tests/fuzz/gather_world.h"

using corvane::text_or;
using corvane::to_int;
using corvane::fuzz::GatherWorld;
using corvane::fuzz::Record;
using corvane::fuzz::require;

namespace {

void check_row(GatherWorld& world, const Record& image) {
  const auto rows = world.rows(
      "SELECT UNIQUE_KEY, CLIENT, POLICY, POLICY_TYPE, SCHEDULE_TYPE, SCHEDULE_NAME, ASSET_ID, "
      "BACKUP_TIME, NUM_FILES, JOB_ID, STREAM_NUMBER, START_TIME, DEDUP_RATE, MODE FROM HIST_DATA");
  if (corvane::fuzz::has_nan(image, "kbytes")) {
    require(rows.empty(), "a size that is no number is not stored");
    require(corvane::fuzz::logged(
                16, "Error inserting data in IMAGE_DATA sqlite query execution failed."),
            "what is lost is logged");
    return;
  }
  const auto text = [&](const char* key) { return text_or(image, key, ""); };
  const auto number = [&](const char* key) { return std::to_string(to_int(text(key))); };
  const std::string asset = text("provider_generated_id");
  const corvane::test::SqlRow expected{"data_" + number("job_id") + "_" + text("backupid"),
                                       text("client_name"),
                                       text("policy_name"),
                                       world.gather->policy_type_name(text("client_type")),
                                       world.gather->schedule_type_name(text("sched_type")),
                                       text("sched_label"),
                                       asset.empty() ? "NA" : asset,
                                       number("backup_time"),
                                       number("num_files"),
                                       number("job_id"),
                                       number("stream_number"),
                                       "-1",
                                       "-1.0",
                                       "0"};
  require(rows.size() == 1 && rows.front() == expected, "the row holds what the line says");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static GatherWorld world("");
  world.clear();
  const std::string line = corvane::fuzz::text_of(data, size);
  Record image;
  try {
    image = world.gather->parse_qpimagelist_line(line);
  } catch (const std::runtime_error& error) {
    const std::string reason = error.what();
    require(reason == "JSON parsing failed for qpimagelist image.", "the reason is known", reason);
    require(corvane::fuzz::json_type_of(line) == -1, "JSON is accepted");
    require(
        corvane::fuzz::logged(16, std::string("Error while parsing line ") + line.c_str() + "."),
        "the line is in the log");
    return 0;
  }
  require(corvane::fuzz::json_type_of(line) != -1, "only JSON is accepted");
  require(!image.contains("frags"), "fragments are left out");
  require(world.gather->parse_qpimagelist_line(
              corvane::fuzz::text_of_json(corvane::fuzz::json_of(image))) == image,
          "a line written anew is read alike");
  world.gather->process_image_data(image, 0);
  check_row(world, image);
  return 0;
}
