#include "gather/backup_record.h"

#include <array>
#include <charconv>

namespace corvane {

namespace {

std::string real_to_text(double number) {
  std::array<char, 32> buffer;
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number,
                                 std::chars_format::general, 6);
  return {buffer.data(), end.ptr};
}

}  // namespace

std::string json_value_to_text(const json_t* value) {
  if (value == nullptr) return "";
  switch (json_typeof(value)) {
    case JSON_STRING:
      return {json_string_value(value), json_string_length(value)};
    case JSON_INTEGER:
      return std::to_string(json_integer_value(value));
    case JSON_REAL:
      return real_to_text(json_real_value(value));
    case JSON_TRUE:
      return "1";
    case JSON_FALSE:
      return "0";
    case JSON_OBJECT:
    case JSON_ARRAY:
    case JSON_NULL:
      break;
  }
  return "";
}

const std::string& text_or(const BackupRecord& record, const std::string& key,
                           const std::string& fallback) {
  const auto found = record.find(key);
  return found == record.end() ? fallback : found->second;
}

}  // namespace corvane
