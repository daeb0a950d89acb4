#include "anomaly_database/backup_types.h"

#include <array>
#include <cstddef>

namespace corvane {

namespace {

constexpr std::array<std::string_view, 5> kScheduleTypes{
    "FULL", "DIFFERENTIAL_INCREMENTAL", "USER_BACKUP", "USER_ARCHIVE", "CUMULATIVE_INCREMENTAL"};

std::string fold(std::string_view text) {
  std::string folded(text);
  for (char& letter : folded) {
    if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
    if (letter == '-' || letter == ' ') letter = '_';
  }
  return folded;
}

}  // namespace

std::string fold_policy_type(std::string_view text) { return fold(text); }

std::string fold_schedule_type(std::string_view text) {
  if (text.size() == 1 && text[0] >= '0' &&
      text[0] < '0' + static_cast<int>(kScheduleTypes.size())) {
    return std::string(kScheduleTypes[static_cast<std::size_t>(text[0] - '0')]);
  }
  return fold(text);
}

bool is_known_application(std::string_view type) { return !type.empty() && type != "NONE"; }
bool is_known_destination(std::string_view name) { return !name.empty() && name != "NA"; }

}  // namespace corvane
