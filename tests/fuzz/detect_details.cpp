// The details of an anomaly: names from anywhere become valid JSON, and details that are read back
// are noted on. The input, separated by NULs: client, policy, key, then stored details.
#include <cmath>

#include "companions/common/backup_types.h"
#include "companions/common/valid_utf8.h"
#include "companions/detect/details.h"
#include "platform/c_handles.h"
#include "tests/fuzz/fuzz.h"

using corvane::detect::Backup;
using corvane::detect::Verdict;
using corvane::fuzz::require;

namespace {

corvane::JsonPtr parse(const std::string& text) {
  return corvane::JsonPtr(json_loads(text.c_str(), 0, nullptr));
}

void check_text(const std::string& text) {
  const std::string valid = corvane::valid_utf8(text);
  require(corvane::valid_utf8(valid) == valid, "what is valid stays", valid);
  const corvane::JsonPtr checked(json_stringn(text.data(), text.size()));
  require((checked != nullptr) == (valid == text), "what is no UTF-8 is replaced, nothing else");
  const corvane::JsonPtr string(json_stringn(valid.data(), valid.size()));
  require(string != nullptr, "what is replaced is UTF-8");
}

std::string text_at(const json_t* object, const char* key) {
  const char* text = json_string_value(json_object_get(object, key));
  return text == nullptr ? "" : text;
}

void check_details(const Backup& backup, const Verdict& verdict) {
  using corvane::valid_utf8;
  const std::string details = corvane::detect::details_of(backup, verdict, backup.unique_key, {});
  const auto root = parse(details);
  require(json_is_object(root.get()), "details are JSON", details);
  const json_t* stream = json_object_get(root.get(), "stream");
  require(text_at(stream, "client") == valid_utf8(backup.stream.client), "the client is named");
  require(text_at(stream, "policy") == valid_utf8(backup.stream.policy), "the policy is named");
  require(text_at(root.get(), "incident") == valid_utf8("incident_" + backup.unique_key),
          "the incident is named");
  require(!text_at(root.get(), "summary").empty(), "there are words for people");
}

void check_adoption(const std::string& details, const Backup& backup) {
  const std::string noted = corvane::detect::with_adoption(details, backup);
  const auto before = parse(details);
  if (!json_is_object(before.get())) {
    require(noted == details, "what is no object is left alone");
    return;
  }
  const auto after = parse(noted);
  require(json_is_object(json_object_get(after.get(), "adopted")), "the adoption is noted");
  json_object_del(before.get(), "adopted");
  json_object_del(after.get(), "adopted");
  require(json_equal(before.get(), after.get()) == 1, "the rest stays", noted);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto parts = corvane::fuzz::parts_of(corvane::fuzz::text_of(data, size), 4);
  for (const std::string& part : parts) check_text(part);
  Backup backup;
  backup.unique_key = parts[2];
  backup.backup_id = parts[2];
  backup.stream = {.client = parts[0],
                   .policy = parts[1],
                   .policy_type = corvane::fold_policy_type(parts[1]),
                   .schedule_type = corvane::fold_schedule_type(parts[0]),
                   .schedule_name = parts[1],
                   .app_type = "",
                   .destination = ""};
  Verdict verdict;
  verdict.causes = {{.id = "unclear", .words = "Nobody knows."}};
  for (auto& view : verdict.features) {
    view = {.known = true,
            .used = true,
            .value = static_cast<double>(size),
            .low = 1,
            .usual = 2,
            .high = 3,
            .deviation = 4};
  }
  check_details(backup, verdict);
  check_adoption(parts[3], backup);
  require(corvane::detect::unique_key_of(corvane::detect::anomaly_id(parts[2])) == parts[2],
          "an anomaly's id tells the key");
  require(corvane::fold_policy_type(backup.stream.policy_type) == backup.stream.policy_type,
          "what is folded stays", backup.stream.policy_type);
  return 0;
}
