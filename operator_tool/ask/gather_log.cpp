#include "operator_tool/ask/gather_log.h"

#include <charconv>
#include <chrono>
#include <fstream>
#include <optional>
#include <vector>

#include "platform/debug_log.h"

namespace corvane::ctl {

namespace {

constexpr std::int64_t kMostBytes = std::int64_t{4} << 20;
constexpr std::string_view kBegins = "cvanomalymgmt: Capturing data between ";
constexpr std::string_view kEnds = "cvanomalymgmt: Total time taken for live gather ";

template <typename Number>
bool take_number(std::string_view& text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{}) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

// "2026-01-31T04:05:06.789Z"; the milliseconds are left out.
std::optional<std::int64_t> take_time(std::string_view& line) {
  int year = 0;
  unsigned parts[5]{};
  constexpr char kBefore[] = {'-', '-', 'T', ':', ':'};
  // A line whose begin is cut off may begin with a shorter year.
  if (line.find('-') != 4 || !take_number(line, year)) return std::nullopt;
  for (std::size_t i = 0; i < 5; ++i) {
    if (!line.starts_with(kBefore[i])) return std::nullopt;
    line.remove_prefix(1);
    if (!take_number(line, parts[i])) return std::nullopt;
  }
  const std::chrono::year_month_day date{std::chrono::year{year}, std::chrono::month{parts[0]},
                                         std::chrono::day{parts[1]}};
  const std::size_t end = line.find("Z ");
  if (!date.ok() || end == std::string_view::npos) return std::nullopt;
  line.remove_prefix(end + 2);
  const std::int64_t day = std::chrono::sys_days{date}.time_since_epoch().count();
  return ((day * 24 + parts[2]) * 60 + parts[3]) * 60 + parts[4];
}

// Takes process id and level as well; the rest is tag and text.
struct Record {
  std::int64_t time = 0;
  int level = 0;
  std::string_view rest;
};
std::optional<Record> record_of(std::string_view line) {
  Record record;
  const std::optional<std::int64_t> time = take_time(line);
  int process = 0;
  if (!time || !take_number(line, process)) return std::nullopt;
  if (line.starts_with('d')) line.remove_prefix(1);
  if (!line.starts_with(' ')) return std::nullopt;
  line.remove_prefix(1);
  if (!take_number(line, record.level) || !line.starts_with(' ')) return std::nullopt;
  record.time = *time;
  record.rest = line.substr(1);
  return record;
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
    if (!take_number(seconds, log.last_seconds)) log.last_seconds = -1;
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
  if (!file) return {};
  const std::int64_t size = file.tellg();
  if (size <= 0) return {};
  const std::int64_t from = size > kMostBytes ? size - kMostBytes : 0;
  file.seekg(from);
  std::string text(static_cast<std::size_t>(size - from), '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(file.gcount()));
  return parse_gather_log(text, since);
}

}  // namespace corvane::ctl
