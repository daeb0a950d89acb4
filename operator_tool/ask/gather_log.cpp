#include "operator_tool/ask/gather_log.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <fstream>
#include <optional>

#include "platform/debug_log.h"

namespace corvane::ctl {

namespace {

constexpr std::int64_t kMostBytes = std::int64_t{4} << 20;
constexpr std::string_view kBegins = "cvanomalymgmt: Capturing data between ";
constexpr std::string_view kEnds = "cvanomalymgmt: Total time taken for live gather ";

template <typename Number>
std::optional<Number> take_number(std::string_view& text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{}) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

bool take(std::string_view& text, std::string_view begin) {
  if (!text.starts_with(begin)) return false;
  text.remove_prefix(begin.size());
  return true;
}

// "2026-01-31T04:05:06.789Z "; the milliseconds are left out.
std::optional<std::int64_t> take_time(std::string_view& line) {
  constexpr std::array kBefore{"", "-", "-", "T", ":", ":"};
  std::array<unsigned, kBefore.size()> parts{};
  // If the beginning of a line is cut off, its year may be shorter.
  if (line.find('-') != 4) return std::nullopt;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (!take(line, kBefore.at(i))) return std::nullopt;
    const std::optional<unsigned> part = take_number<unsigned>(line);
    if (!part) return std::nullopt;
    parts.at(i) = *part;
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

// Process id and level are taken off; the rest is tag and text.
struct Record {
  std::int64_t time;
  int level;
  std::string_view rest;
};
std::optional<Record> record_of(std::string_view line) {
  const std::optional<std::int64_t> time = take_time(line);
  if (!time || !take_number<int>(line)) return std::nullopt;
  take(line, "d");
  if (!take(line, " ")) return std::nullopt;
  const std::optional<int> level = take_number<int>(line);
  if (!level || !take(line, " ")) return std::nullopt;
  return Record{*time, *level, line};
}

}  // namespace

GatherLog parse_gather_log(std::string_view text, std::int64_t since) {
  GatherLog log;
  bool gathers = false;
  bool failed = false;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::optional<Record> record = record_of(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!record) continue;  // the rest of a text of several lines
    if (log.from == 0) log.from = record->time;
    if (record->rest.starts_with(kBegins)) {
      gathers = true;
      failed = false;
    }
    if (gathers && record->level >= kLogError) failed = true;
    if (!record->rest.starts_with(kEnds)) continue;
    std::string_view seconds = record->rest.substr(kEnds.size());
    log.last_end = record->time;
    log.last_seconds = take_number<std::int64_t>(seconds).value_or(-1);
    if (record->time >= since) {
      ++log.gathers;
      if (failed) ++log.failed;
      if (failed) log.last_failed = record->time;
    }
    gathers = failed = false;
  }
  return log;
}

GatherLog read_gather_log(const std::string& path, std::int64_t since) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  const auto size = std::max<std::int64_t>(file.tellg(), 0);
  const auto from = std::max<std::int64_t>(size - kMostBytes, 0);
  file.seekg(from);
  std::string text(static_cast<std::size_t>(size - from), '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(file.gcount()));
  return parse_gather_log(text, since);
}

}  // namespace corvane::ctl
