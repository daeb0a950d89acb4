#include "operator_tool/terminal/time_argument.h"

#include <ctime>

namespace corvane::ctl {

namespace {

bool is_same_moment(const std::tm& a, const std::tm& b) {
  return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday &&
         a.tm_hour == b.tm_hour && a.tm_min == b.tm_min && a.tm_sec == b.tm_sec;
}

}  // namespace

std::optional<std::int64_t> read_time(const std::string& text, bool utc) {
  for (const char* format :
       {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S"}) {
    std::tm fields{};
    const char* end = strptime(text.c_str(), format, &fields);
    if (end == nullptr || *end != '\0') continue;
    fields.tm_isdst = -1;
    const std::tm typed = fields;
    const std::time_t time = utc ? timegm(&fields) : std::mktime(&fields);
    // The 30th of February becomes another day, the hour that summer time leaves out another hour.
    if (!is_same_moment(fields, typed)) return std::nullopt;
    return time;
  }
  return std::nullopt;
}

}  // namespace corvane::ctl
