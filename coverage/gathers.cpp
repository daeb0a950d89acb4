#include "coverage/gathers.h"

#include "util/json.h"

namespace corvane::coverage {

namespace {

constexpr std::size_t kLongestState = 1 << 16;

constexpr char kLogLine[] = "log_line";
constexpr char kLogOffset[] = "log_offset";
constexpr char kReader[] = "reader";

std::string text_of_state(const ReaderState& state) {
  const JsonPtr document(json_object());
  put(document.get(), "process", std::int64_t{state.process});
  put(document.get(), "is_history", state.is_history);
  put(document.get(), "has_whole_range", state.has_whole_range);
  put(document.get(), "is_open", state.is_open);
  put(document.get(), "is_told_empty", state.is_told_empty);
  put(document.get(), "is_problem_next", state.is_problem_next);
  put(document.get(), "purged_before", state.purged_before);
  put(document.get(), "purged_at", state.purged_at);
  put(document.get(), "interval", state.interval);
  put(document.get(), "is_live", state.gather.is_live);
  put(document.get(), "start", state.gather.start);
  put(document.get(), "end", state.gather.end);
  put(document.get(), "began", state.gather.began);
  put(document.get(), "ended", state.gather.ended);
  put(document.get(), "outcome", static_cast<std::int64_t>(state.gather.outcome));
  put(document.get(), "reason", state.gather.reason);
  return json_text(document.get());
}

ReaderState state_of_text(const std::string& text) {
  ReaderState state;
  const JsonPtr document = parse_json_object(text, kLongestState);
  if (!document) return state;
  const auto flag = [&](const char* name) {
    return json_is_true(json_object_get(document.get(), name));
  };
  state.process = static_cast<pid_t>(integer_member(document.get(), "process"));
  state.is_history = flag("is_history");
  state.has_whole_range = flag("has_whole_range");
  state.is_open = flag("is_open");
  state.is_told_empty = flag("is_told_empty");
  state.is_problem_next = flag("is_problem_next");
  state.purged_before = integer_member(document.get(), "purged_before");
  state.purged_at = integer_member(document.get(), "purged_at");
  state.interval = integer_member(document.get(), "interval");
  state.gather.is_live = flag("is_live");
  state.gather.start = integer_member(document.get(), "start");
  state.gather.end = integer_member(document.get(), "end");
  state.gather.began = integer_member(document.get(), "began");
  state.gather.ended = integer_member(document.get(), "ended");
  state.gather.outcome = static_cast<Outcome>(integer_member(document.get(), "outcome"));
  state.gather.reason = text_member(document.get(), "reason");
  return state;
}

}  // namespace

LogPosition Gathers::log_position() {
  return {ledger_.text_of(kLogLine), ledger_.number_of(kLogOffset)};
}

ReaderState Gathers::reader_state() { return state_of_text(ledger_.text_of(kReader)); }

void Gathers::set_log_position(const LogPosition& position, const ReaderState& state) {
  ledger_.set_text(kLogLine, position.first_line);
  ledger_.set_number(kLogOffset, position.offset);
  ledger_.set_text(kReader, text_of_state(state));
  ledger_.set_number(kPurgedBefore, state.purged_before);
  ledger_.set_number(kPurgedAt, state.purged_at);
  ledger_.set_number(kInterval, state.interval);
}

void Gathers::add(const Gather& gather) {
  static constexpr char kInsert[] =
      "INSERT INTO gather (is_live, start, until, began, ended, outcome, reason) "
      "VALUES (?, ?, ?, ?, ?, ?, ?)";
  ledger_.query(kInsert)
      .bind(std::int64_t{gather.is_live})
      .bind(gather.start)
      .bind(gather.end)
      .bind(gather.began)
      .bind(gather.ended)
      .bind(gather.outcome)
      .bind(gather.reason)
      .run();
}

GatherHealth Gathers::health() {
  static constexpr char kSince[] =
      "SELECT coalesce(max(id), 0) FROM gather WHERE is_live = 1 AND outcome = 0";
  static constexpr char kFailed[] =
      "SELECT count(*), coalesce(min(began), 0), (SELECT reason FROM gather WHERE is_live = 1 "
      "ORDER BY id DESC LIMIT 1) FROM gather WHERE is_live = 1 AND outcome <> 0 AND id > ?";
  static constexpr char kEnded[] = "SELECT ended FROM gather WHERE id = ?";
  GatherHealth health;
  const std::int64_t last_complete = ledger_.number(kSince);
  health.last_complete = ledger_.query(kEnded).bind(last_complete).first_integer();
  Query& failed = ledger_.query(kFailed).bind(last_complete);
  failed.step();
  health.failed_in_a_row = failed.integer(0);
  health.first_failed = failed.integer(1);
  if (health.failed_in_a_row > 0) health.reason = failed.text(2);
  failed.restart();
  const ReaderState state = reader_state();
  if (state.is_open) health.open_since = state.gather.began;
  return health;
}

GatherCounts Gathers::counts(std::int64_t since) {
  static constexpr char kCounts[] =
      "SELECT count(*), coalesce(sum(outcome <> 0), 0), coalesce(max(iif(outcome <> 0, ended, 0)), "
      "0) FROM gather WHERE is_live = 1 AND ended >= ?";
  static constexpr char kFrom[] = "SELECT coalesce(min(began), 0) FROM gather WHERE is_live = 1";
  static constexpr char kLast[] =
      "SELECT ended, ended - began FROM gather WHERE is_live = 1 ORDER BY id DESC LIMIT 1";
  GatherCounts counts;
  counts.from = ledger_.number(kFrom);
  Query& some = ledger_.query(kCounts).bind(since);
  some.step();
  counts.gathers = some.integer(0);
  counts.failed = some.integer(1);
  counts.last_failed = some.integer(2);
  some.restart();
  Query& last = ledger_.query(kLast);
  if (last.step()) {
    counts.last_end = last.integer(0);
    counts.last_seconds = last.integer(1);
  }
  last.restart();
  return counts;
}

std::int64_t Gathers::last_end() {
  static constexpr char kSql[] = "SELECT ended FROM gather ORDER BY id DESC LIMIT 1";
  return ledger_.number(kSql);
}

std::int64_t Gathers::asked_until() {
  static constexpr char kSql[] =
      "SELECT coalesce(max(iif(outcome = 3, began, until)), 0) FROM gather";
  return ledger_.number(kSql);
}

void Gathers::forget(std::int64_t before) {
  static constexpr char kSql[] = "DELETE FROM gather WHERE ended < ?";
  ledger_.query(kSql).bind(before).run();
}

void Gathers::forget_after(std::int64_t now) {
  static constexpr char kSql[] = "DELETE FROM gather WHERE until > ?1 OR ended > ?1";
  ledger_.query(kSql).bind(now).run();
}

}  // namespace corvane::coverage
