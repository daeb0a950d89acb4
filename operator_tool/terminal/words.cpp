#include "operator_tool/terminal/words.h"

namespace corvane::ctl {

namespace {

std::string known_or_dash(std::string text) { return text.empty() ? "-" : text; }

}  // namespace

std::string time_text(std::int64_t seconds, bool utc) {
  return known_or_dash(formatted_time(seconds, utc, "%Y-%m-%d %H:%M"));
}

std::string moment_text(std::int64_t seconds, bool utc) {
  return known_or_dash(
      formatted_time(seconds, utc, utc ? "%Y-%m-%d %H:%M UTC" : "%Y-%m-%d %H:%M %Z"));
}

}  // namespace corvane::ctl
