// The details of an anomaly: names from anywhere become valid JSON that says the same when it is
// read, and details that are read back are noted on. The input, separated by NULs: client, policy,
// key, then stored details.
#include "anomaly_database/backup_types.h"
#include "companions/detect/finding_of.h"
#include "finding/anomaly.h"
#include "finding/finding_json.h"
#include "platform/c_handles.h"
#include "tests/fuzz/fuzz.h"
#include "util/json.h"
#include "util/valid_utf8.h"

using corvane::Backup;
using corvane::Finding;
using corvane::JsonPtr;
using corvane::valid_utf8;
using corvane::detect::Verdict;
using corvane::fuzz::require;

namespace {

void check_text(const std::string& text) {
  const std::string valid = valid_utf8(text);
  require(valid_utf8(valid) == valid, "what is valid stays", valid);
  const JsonPtr checked(json_stringn(text.data(), text.size()));
  require((checked != nullptr) == (valid == text), "what is no UTF-8 is replaced, nothing else");
  const JsonPtr string(json_stringn(valid.data(), valid.size()));
  require(string != nullptr, "what is replaced is UTF-8");
}

std::string text_at(const json_t* object, const char* key) {
  const char* text = json_string_value(json_object_get(object, key));
  return text == nullptr ? "" : text;
}

std::string sorted_text(const json_t* value) {
  return corvane::json_text(value, JSON_COMPACT | JSON_SORT_KEYS);
}

// What a reader leaves out because it is too long for a name.
bool has_names_of_a_length_that_is_read(const Finding& finding) {
  constexpr std::size_t kMost = 1000;
  return !finding.stream.client.empty() && valid_utf8(finding.stream.client).size() <= kMost &&
         valid_utf8(finding.stream.policy).size() <= kMost &&
         valid_utf8(finding.incident).size() <= kMost && finding.summary.size() <= 4 * kMost;
}

void check_details(const Finding& finding) {
  const std::string details = corvane::json_text(corvane::to_json(finding).get());
  const JsonPtr root = corvane::parse_details(details);
  require(json_is_object(root.get()), "details are JSON", details);
  const json_t* stream = json_object_get(root.get(), "stream");
  require(text_at(stream, "client") == valid_utf8(finding.stream.client), "the client is named");
  require(text_at(stream, "policy") == valid_utf8(finding.stream.policy), "the policy is named");
  require(text_at(root.get(), "incident") == valid_utf8(finding.incident), "the incident is named");
  require(!text_at(root.get(), "summary").empty(), "there are words for people");
  if (!has_names_of_a_length_that_is_read(finding)) return;
  const std::string again =
      corvane::json_text(corvane::to_json(corvane::from_json(root.get())).get());
  require(again == details, "what is read says the same", again);
}

void check_adoption(const std::string& details, const corvane::BackupReference& backup) {
  const std::string noted = corvane::with_adoption(details, backup);
  const JsonPtr before = corvane::parse_details(details);
  if (before == nullptr) {
    require(noted == details, "what is no object is left alone");
    return;
  }
  const JsonPtr after = corvane::parse_details(noted);
  require(json_is_object(json_object_get(after.get(), "adopted")), "the adoption is noted");
  require(corvane::from_json(after.get()).adopted.has_value(), "and read");
  json_object_del(before.get(), "adopted");
  json_object_del(after.get(), "adopted");
  require(sorted_text(before.get()) == sorted_text(after.get()), "the rest stays", noted);
}

Finding finding_of(const Backup& backup, std::size_t size) {
  corvane::detect::Model model({}, [](const std::string&) { return std::string(); });
  Verdict verdict;
  verdict.severity = corvane::Severity::kMajor;
  verdict.causes = {{corvane::CauseKind::kUnclear, "Nobody knows."}};
  for (corvane::FigureView& view : verdict.figures) {
    view = {.known = true,
            .has_usual = true,
            .value = static_cast<double>(size),
            .low = 1,
            .usual = 2,
            .high = 3,
            .deviation = 4};
  }
  return corvane::detect::finding_of(backup, verdict, model);
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
  const Finding finding = finding_of(backup, size);
  require(finding.incident == "incident_" + backup.unique_key, "it begins an incident");
  check_details(finding);
  check_adoption(parts[3], {backup.backup_id, backup.time});
  require(corvane::unique_key_of(corvane::anomaly_id(parts[2])) == parts[2],
          "an anomaly's id tells the key");
  require(corvane::fold_policy_type(backup.stream.policy_type) == backup.stream.policy_type,
          "what is folded stays", backup.stream.policy_type);
  return 0;
}
