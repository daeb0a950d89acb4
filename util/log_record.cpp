#include "util/log_record.h"

#include <array>
#include <charconv>
#include <chrono>
#include <limits>

namespace corvane {

namespace {

// "2026-01-31T04:05:06.789Z ".
std::optional<std::int64_t> take_time(std::string_view& line) {
  constexpr std::array kBefore{"", "-", "-", "T", ":", ":"};
  std::array<unsigned, kBefore.size()> parts{};
  // If the beginning of a line is cut off, its year may be shorter.
  if (line.find('-') != 4) return std::nullopt;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (!take(line, kBefore.at(i))) return std::nullopt;
    const std::optional<std::int64_t> part = take_number(line);
    if (!part || *part < 0 || *part > 9999) return std::nullopt;
    parts.at(i) = static_cast<unsigned>(*part);
  }
  const auto [year, month, day, hour, minute, second] = parts;
  const std::chrono::year_month_day date{std::chrono::year{static_cast<int>(year)},
                                         std::chrono::month{month}, std::chrono::day{day}};
  const std::size_t end = line.find("Z ");
  if (!date.ok() || end == std::string_view::npos) return std::nullopt;
  line.remove_prefix(end + 2);
  const std::int64_t days = std::chrono::sys_days{date}.time_since_epoch().count();
  return ((days * 24 + hour) * 60 + minute) * 60 + second;
}

}  // namespace

bool take(std::string_view& text, std::string_view begin) {
  if (!text.starts_with(begin)) return false;
  text.remove_prefix(begin.size());
  return true;
}

std::optional<std::int64_t> take_number(std::string_view& text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{}) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

std::optional<LogRecord> read_log_record(std::string_view line) {
  LogRecord record;
  const std::optional<std::int64_t> time = take_time(line);
  if (!time) return std::nullopt;
  const std::optional<std::int64_t> process = take_number(line);
  record.is_daemon = take(line, "d");
  if (!process || !take(line, " ")) return std::nullopt;
  const std::optional<std::int64_t> level = take_number(line);
  if (!level || !take(line, " ")) return std::nullopt;
  record.time = *time;
  record.process = static_cast<pid_t>(*process);
  record.level = static_cast<int>(*level);
  record.text = line;
  return record;
}

}  // namespace corvane
