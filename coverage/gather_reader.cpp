#include "coverage/gather_reader.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "platform/debug_log.h"

namespace corvane::coverage {

namespace {

constexpr std::string_view kService = "cvanomalymgmt: ";
constexpr std::string_view kHistory = "ManagementService::do_historical_gather: ";
constexpr std::string_view kRange = "Capturing data between ";
constexpr std::string_view kPurge = "Cleaning records before ";
constexpr std::string_view kFirstInterval = "m_data_fetch_interval_in_mins:[";
constexpr std::string_view kInterval = "Using gather frequency as ";
constexpr std::size_t kLongestReason = 200;

// What the service logs when something of a range is not stored. Other errors cost no record, like
// a certificate that is not accepted while the other one is. A backup whose image the server did
// not give is not stored either; it is found when the stored backups are compared with the
// server's.
constexpr std::array<std::string_view, 8> kLosses{"Could not capture data between ",
                                                  "Error inserting data",
                                                  "Error occurred while capturing data between ",
                                                  "Failed to gather job information.",
                                                  "Issue parsing image.",
                                                  "Error while parsing line ",
                                                  "Failed to parse. Details: ",
                                                  "Could not read all of "};

bool is_loss(std::string_view text) {
  return std::ranges::any_of(kLosses,
                             [&](std::string_view loss) { return text.starts_with(loss); });
}

std::string without_tag(std::string_view text) {
  const std::size_t colon = text.find(": ");
  if (colon != std::string_view::npos) text.remove_prefix(colon + 2);
  return std::string(text.substr(0, kLongestReason));
}

// "1700000000 & 1700003600 ".
bool take_range(std::string_view text, Gather& gather) {
  const std::optional<std::int64_t> start = take_number(text);
  if (!start || !take(text, " & ")) return false;
  const std::optional<std::int64_t> end = take_number(text);
  if (!end) return false;
  gather.start = *start;
  gather.end = *end;
  return true;
}

}  // namespace

GatherReader::GatherReader(std::function<void(const Gather&)> visit, ReaderState state)
    : visit_(std::move(visit)), state_(std::move(state)) {}

void GatherReader::read(std::string_view line) {
  if (const std::optional<LogRecord> record = read_log_record(line)) {
    read_record(*record);
  } else if (std::exchange(state_.is_problem_next, false) && take(line, "\t")) {
    state_.gather.reason = line.substr(0, kLongestReason);
  }
}

void GatherReader::read_record(const LogRecord& record) {
  if (state_.is_open && record.process == state_.process) {
    state_.gather.ended = std::max(state_.gather.ended, record.time);
    if (record.level >= kLogError && state_.gather.reason.empty()) {
      state_.gather.reason = without_tag(record.text);
      state_.is_problem_next = state_.gather.reason.empty();
    }
  }
  std::string_view text = record.text;
  if (take(text, kHistory)) return read_history(record, text);
  if (take(text, kService)) return read_service(record, text);
  // The answer to the second certificate is taken whatever its status.
  if (text.starts_with("CurlClient::execute: ") && record.level >= kLogError) fail(text);
}

void GatherReader::read_history(const LogRecord& record, std::string_view text) {
  if (text == "Capturing historical data.") {
    follow_process(record);
    cut();
    state_.is_history = true;
    state_.has_whole_range = false;
  } else if (text == "Service has been requested to stop") {
    end(record.time);  // it looks for a stop between two slices
    state_.is_history = false;
  } else if (take(text, kRange) && state_.is_history) {
    end(record.time);
    if (std::exchange(state_.has_whole_range, true)) begin(record, text);
  }
}

void GatherReader::read_service(const LogRecord& record, std::string_view text) {
  if (is_loss(text)) {
    fail(text);
  } else if (text == "No data received") {
    state_.is_told_empty = true;
  } else if (text == "Total images captured = 0") {
    // How the tool ended is not looked at: all that shows of a failure is an empty list.
    if (!state_.is_told_empty) fail(text);
  } else if (text == "Done capturing historical data.") {
    end(record.time);
    state_.is_history = false;
  } else if (take(text, kPurge)) {
    state_.purged_before = take_number(text).value_or(0);
    state_.purged_at = record.time;
  } else if (take(text, kFirstInterval) || take(text, kInterval)) {
    state_.interval = take_number(text).value_or(0);
  } else if (take(text, kRange)) {
    follow_process(record);
    if (state_.is_history) return;  // that of the slice, which has begun
    cut();
    begin(record, text);
  } else if (text.starts_with("Total time taken for live gather ")) {
    follow_process(record);
    if (!state_.is_open) {
      state_.is_open = true;
      state_.gather = {.began = record.time, .outcome = Outcome::kSkipped};
    }
    end(record.time);
  }
}

// When another process of the service is at work, the one before has ended.
void GatherReader::follow_process(const LogRecord& record) {
  if (record.process == state_.process) return;
  cut();
  state_.process = record.process;
  state_.is_history = false;
}

void GatherReader::begin(const LogRecord& record, std::string_view range) {
  state_.is_open = true;
  state_.is_told_empty = false;
  state_.gather = {.is_live = !state_.is_history, .began = record.time, .ended = record.time};
  if (!take_range(range, state_.gather)) fail(record.text);
}

void GatherReader::fail(std::string_view text) {
  if (!state_.is_open) return;
  state_.gather.outcome = Outcome::kFailed;
  if (state_.gather.reason.empty() && !state_.is_problem_next) {
    state_.gather.reason = text.substr(0, kLongestReason);
  }
}

void GatherReader::end(std::int64_t time) {
  if (!std::exchange(state_.is_open, false)) return;
  state_.is_problem_next = false;
  Gather& gather = state_.gather;
  gather.ended = time;
  if (gather.outcome == Outcome::kComplete) gather.reason.clear();
  visit_(gather);
}

void GatherReader::cut() {
  if (!state_.is_open) return;
  state_.gather.outcome = Outcome::kCut;
  end(state_.gather.ended);
}

}  // namespace corvane::coverage
