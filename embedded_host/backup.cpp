#include "embedded_host/backup.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "embedded_host/code_tables.h"
#include "embedded_host/iso_time.h"
#include "embedded_host/json_writer.h"
#include "platform/c_handles.h"

namespace corvane::host {

namespace {

constexpr std::size_t kMaxText = 1024;
// Leaves room for calculating percentages of figures.
constexpr std::int64_t kMaxFigure = 1'000'000'000'000'000;
// Readers of the catalog keep job numbers and times in 32 bits.
constexpr std::int64_t kMaxNarrow = std::numeric_limits<std::int32_t>::max();

std::string quoted(std::string_view name) { return "'" + printable(name) + "'"; }

const std::vector<BackupField>& field_table() {
  using enum FieldKind;
  static const std::vector<BackupField> table = {
      {"jobId", "job_id", kInteger, true, {}},
      {"parentJobId", "parent_job_id", kInteger, false, {}},
      {"jobType", "job_type", kText, true, {}},
      {"state", "state", kText, false, "DONE"},
      {"status", "status", kInteger, false, {}},
      {"clientName", "client_name", kText, true, {}},
      {"policyName", "policy_name", kText, true, {}},
      {"policyType", "policy_type", kPolicyType, true, {}},
      {"scheduleName", "schedule_name", kText, true, {}},
      {"scheduleType", "schedule_type", kScheduleType, true, {}},
      {"backupId", "backup_id", kBackupId, false, ""},
      {"startTime", "start_time", kTime, true, {}},
      {"endTime", "end_time", kTime, true, {}},
      {"backupTime", "backup_time", kTime, false, {}},
      {"kbytes", "kbytes", kInteger, false, {}},
      {"kilobytesTransferred", "kilobytes_transferred", kInteger, false, {}},
      {"numFiles", "num_files", kInteger, false, {}},
      {"numberOfFiles", "number_of_files", kInteger, false, {}},
      {"dedupRatio", "dedup_ratio", kReal, false, 1.0},
      {"streamNumber", "stream_number", kInteger, false, {}},
      {"destinationStorageUnitName", "destination_storage_unit_name", kText, false, ""},
      {"applicationType", "application_type", kText, false, ""},
      {"providerGeneratedId", "provider_generated_id", kText, false, ""},
  };
  return table;
}

std::size_t position_of(std::string_view attribute) {
  const auto& table = field_table();
  const auto found = std::find_if(table.begin(), table.end(), [&](const BackupField& field) {
    return field.attribute == attribute;
  });
  return static_cast<std::size_t>(found - table.begin());
}

std::string read_text(const BackupField& field, const json_t* value) {
  if (!json_is_string(value)) throw BadBackup(quoted(field.attribute) + " is not a text");
  std::string text(json_string_value(value), json_string_length(value));
  if (text.size() > kMaxText) throw BadBackup(quoted(field.attribute) + " is too long");
  if (field.required && text.empty()) throw BadBackup(quoted(field.attribute) + " is empty");
  return text;
}

std::int64_t read_integer(const BackupField& field, const json_t* value) {
  if (!json_is_integer(value)) throw BadBackup(quoted(field.attribute) + " is not a whole number");
  const std::int64_t number = json_integer_value(value);
  if (number < 0) throw BadBackup(quoted(field.attribute) + " is negative");
  if (number > kMaxFigure) throw BadBackup(quoted(field.attribute) + " is above 10^15");
  return number;
}

double read_real(const BackupField& field, const json_t* value) {
  if (!json_is_number(value)) throw BadBackup(quoted(field.attribute) + " is not a number");
  return json_number_value(value);
}

std::int64_t read_time(const BackupField& field, const json_t* value) {
  const std::string text = read_text(field, value);
  const auto instant = parse_iso_time(text);
  if (!instant || instant->milliseconds != 0) {
    throw BadBackup(
        quoted(field.attribute) +
        " is not a time in whole seconds such as 2026-01-31T04:05:06.000Z: " + quoted(text));
  }
  if (instant->seconds < 0 || instant->seconds > kMaxNarrow) {
    throw BadBackup(quoted(field.attribute) + " is not within the years 1970 to 2038");
  }
  return instant->seconds;
}

// A backup id is used in request paths as it is.
std::string read_backup_id(const BackupField& field, const json_t* value) {
  std::string text = read_text(field, value);
  for (const char c : text) {
    const bool plain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                       c == '.' || c == '_' || c == '-' || c == ':';
    if (!plain)
      throw BadBackup(quoted(field.attribute) + " contains the character " + quoted({&c, 1}));
  }
  return text;
}

std::string known_name(const BackupField& field, const json_t* value) {
  std::string text = read_text(field, value);
  const auto code =
      field.kind == FieldKind::kPolicyType ? policy_type_code(text) : schedule_type_code(text);
  if (!code)
    throw BadBackup(quoted(field.attribute) +
                    " is not one of the product's types: " + quoted(text));
  return text;
}

FieldValue read_field(const BackupField& field, const json_t* value) {
  switch (field.kind) {
    case FieldKind::kInteger:
      return read_integer(field, value);
    case FieldKind::kReal:
      return read_real(field, value);
    case FieldKind::kText:
      return read_text(field, value);
    case FieldKind::kTime:
      return read_time(field, value);
    case FieldKind::kPolicyType:
    case FieldKind::kScheduleType:
      return known_name(field, value);
    case FieldKind::kBackupId:
      return read_backup_id(field, value);
  }
  return field.fallback;
}

// Checks that concern several members, and members that default to another one.
void complete(Backup& backup, json_t* line) {
  const auto integer = [&](std::string_view name) -> std::int64_t& {
    return std::get<std::int64_t>(backup[position_of(name)]);
  };
  const auto copy_if_absent = [&](const char* name, const char* source) {
    if (json_object_get(line, name) == nullptr) integer(name) = integer(source);
  };
  copy_if_absent("parentJobId", "jobId");
  copy_if_absent("backupTime", "startTime");
  copy_if_absent("numberOfFiles", "numFiles");

  for (const char* name : {"jobId", "parentJobId", "status", "streamNumber"}) {
    if (integer(name) > kMaxNarrow) throw BadBackup(quoted(name) + " is above 2147483647");
  }
  if (integer("jobId") == 0) throw BadBackup("'jobId' is 0");
  if (integer("endTime") < integer("startTime")) throw BadBackup("'endTime' is before 'startTime'");
  if (integer("backupTime") > integer("endTime"))
    throw BadBackup("'backupTime' is after 'endTime'");
}

}  // namespace

std::span<const BackupField> backup_fields() { return field_table(); }

Backup parse_backup(std::string_view line) {
  json_error_t error;
  const JsonPtr root(json_loadb(line.data(), line.size(), JSON_REJECT_DUPLICATES, &error));
  if (root == nullptr) {
    throw BadBackup("not JSON: " + printable(error.text) + ", character " +
                    std::to_string(error.position));
  }
  if (!json_is_object(root.get())) throw BadBackup("not a JSON object");

  Backup backup;
  for (const BackupField& field : field_table()) {
    const json_t* value = json_object_get(root.get(), std::string(field.attribute).c_str());
    if (value == nullptr) {
      if (field.required) throw BadBackup(quoted(field.attribute) + " is missing");
      backup.push_back(field.fallback);
    } else {
      backup.push_back(read_field(field, value));
    }
  }
  const char* name = nullptr;
  json_t* member = nullptr;
  json_object_foreach(root.get(), name, member) {
    if (position_of(name) == field_table().size()) {
      throw BadBackup("unknown member " + quoted(name));
    }
  }
  complete(backup, root.get());
  return backup;
}

}  // namespace corvane::host
