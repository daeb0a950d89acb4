// One line of a catalog file: a backup job with the image that it made.
//
// A line is a JSON object whose members are the web service's attributes:
//   {"jobId":101,"jobType":"BACKUP","clientName":"web01","policyName":"web","policyType":"STANDARD",
//    "scheduleName":"daily","scheduleType":"FULL","backupId":"web01_1780606740",
//    "startTime":"2026-06-04T20:59:00.000Z","endTime":"2026-06-04T20:59:02.000Z","kbytes":4665,
//    ...}
// README.md lists them all. A job without backupId has no image.
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace corvane::host {

enum class FieldKind { kInteger, kReal, kText, kTime, kPolicyType, kScheduleType, kBackupId };

using FieldValue = std::variant<std::int64_t, double, std::string>;

struct BackupField {
  std::string_view attribute;  // the member's name
  std::string_view column;     // its column in the catalog
  FieldKind kind;
  bool required;
  FieldValue fallback;  // if the member is missing
};

// All of them, in the order of the catalog's columns; the job id comes first.
std::span<const BackupField> backup_fields();

// The values of one line, in the order of backup_fields(). Times are seconds since the epoch.
using Backup = std::vector<FieldValue>;

// Why a line is not a valid backup.
class BadBackup : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws BadBackup with a reason that names the member.
Backup parse_backup(std::string_view line);

}  // namespace corvane::host
