#include "coverage/holes.h"

#include <algorithm>
#include <utility>

namespace corvane::coverage {

namespace {

// Kinds of spans.
constexpr char kCovered[] = "covered";
constexpr char kAudited[] = "audited";
constexpr char kGatheredWhole[] = "gathered_whole";

constexpr char kFirstLive[] = "first_live";  // a number of the ledger

// What is left of the holes that overlap a range: bind its end, then its begin.
constexpr char kBeginAnew[] =
    "UPDATE hole SET attempts = 0, next_try = 0, reason = '' WHERE start <= ? AND until >= ?";

bool contains(const TimeRange& range, std::int64_t time) {
  return range.begin <= time && time <= range.end;
}

}  // namespace

void Holes::add(const Gather& gather) {
  const TimeRange range{gather.start, gather.end};
  const bool is_repeated = !gather.is_live && first_live() != kEver;
  if (gather.outcome == Outcome::kComplete) {
    if (gather.is_live) ledger_.set_number(kFirstLive, std::min(first_live(), range.begin));
    cover({range.begin, is_repeated ? std::min(range.end, first_live() - 1) : range.end});
  } else if (gather.outcome != Outcome::kSkipped && !is_repeated) {
    uncover(range);
  }
}

std::int64_t Holes::first_live() {
  const std::int64_t known = ledger_.number_of(kFirstLive);
  return known > 0 ? known : kEver;
}

void Holes::cover(TimeRange range) {
  add_span(kCovered, range);
  regain(range);
}

void Holes::heal(TimeRange range) {
  cover(range);
  ledger_.query(kBeginAnew).bind(range.end).bind(range.begin).run();
}

void Holes::uncover(TimeRange range) {
  remove_span(kCovered, range);
  remove_span(kAudited, range);
}

// Both the gaps and the former holes are in order, and none of either touches another one.
std::vector<Hole> Holes::find(TimeRange range, std::int64_t now) {
  static constexpr char kClear[] = "DELETE FROM hole";
  static constexpr char kInsert[] = "INSERT INTO hole VALUES (?, ?, ?, ?, ?, ?)";
  TimeRanges known = covered();
  for (const TimeRange& one : lost()) known.add(one);
  const std::vector<Hole> before = all();
  auto former = before.begin();
  std::vector<Hole> found;
  for (const TimeRange& gap : known.gaps_in(range)) {
    Hole hole{.range = gap, .found = now};
    while (former != before.end() && former->range.end < gap.begin) ++former;
    if (former != before.end() && contains(former->range, gap.begin)) {
      hole = *former;
      hole.range = gap;
    }
    for (auto one = former; one != before.end() && one->range.begin <= gap.end; ++one) {
      hole.found = std::min(hole.found, one->found);
    }
    found.push_back(std::move(hole));
  }
  ledger_.query(kClear).run();
  for (const Hole& hole : found) {
    ledger_.query(kInsert)
        .bind(hole.range.begin)
        .bind(hole.range.end)
        .bind(hole.found)
        .bind(hole.attempts)
        .bind(hole.next_try)
        .bind(hole.reason)
        .run();
  }
  return found;
}

std::vector<Hole> Holes::all() {
  static constexpr char kSql[] =
      "SELECT start, until, found, attempts, next_try, reason FROM hole ORDER BY start";
  std::vector<Hole> all;
  Query& rows = ledger_.query(kSql);
  while (rows.step()) {
    all.push_back({{rows.integer(0), rows.integer(1)},
                   rows.integer(2),
                   rows.integer(3),
                   rows.integer(4),
                   rows.text(5)});
  }
  return all;
}

void Holes::postpone(const Hole& hole, std::int64_t next_try, std::string_view reason) {
  static constexpr char kSql[] =
      "UPDATE hole SET attempts = attempts + 1, next_try = ?, reason = ? WHERE start = ?";
  ledger_.query(kSql).bind(next_try).bind(reason).bind(hole.range.begin).run();
}

void Holes::wait(const Hole& hole, std::int64_t next_try, std::string_view reason) {
  static constexpr char kSql[] = "UPDATE hole SET next_try = ?, reason = ? WHERE start = ?";
  ledger_.query(kSql).bind(next_try).bind(reason).bind(hole.range.begin).run();
}

void Holes::make_due(std::int64_t now) {
  static constexpr char kSql[] =
      "UPDATE hole SET attempts = 0, next_try = 0, found = min(found, ?)";
  ledger_.query(kSql).bind(now).run();
}

void Holes::lose(TimeRange range, std::string_view reason, std::int64_t now) {
  static constexpr char kSql[] = "INSERT OR REPLACE INTO lost VALUES (?, ?, ?, ?)";
  ledger_.query(kSql).bind(range.begin).bind(range.end).bind(now).bind(reason).run();
  ledger_.query(kBeginAnew).bind(range.end).bind(range.begin).run();
}

void Holes::regain(TimeRange range) {
  if (range.is_empty()) return;
  static constexpr char kAfter[] =
      "INSERT OR REPLACE INTO lost SELECT ?2 + 1, until, lost, reason FROM lost "
      "WHERE start <= ?2 AND until > ?2";
  static constexpr char kWithin[] = "DELETE FROM lost WHERE start BETWEEN ? AND ?";
  static constexpr char kBefore[] =
      "UPDATE lost SET until = ?1 - 1 WHERE start < ?1 AND until >= ?1";
  ledger_.query(kAfter).bind(range.begin).bind(range.end).run();
  ledger_.query(kWithin).bind(range.begin).bind(range.end).run();
  ledger_.query(kBefore).bind(range.begin).run();
}

std::vector<TimeRange> Holes::lost() {
  static constexpr char kSql[] = "SELECT start, until FROM lost ORDER BY start";
  std::vector<TimeRange> all;
  Query& rows = ledger_.query(kSql);
  while (rows.step()) all.push_back({rows.integer(0), rows.integer(1)});
  return all;
}

void Holes::audit(TimeRange range) {
  add_span(kAudited, range);
  for (const TimeRange& one : lost()) {
    cover({std::max(one.begin, range.begin), std::min(one.end, range.end)});
  }
}

void Holes::gather_whole(TimeRange range) {
  for (const TimeRange& gap : gathered_whole().gaps_in(range)) uncover(gap);
  add_span(kGatheredWhole, range);
}

void Holes::audit_again() {
  remove_span(kAudited, {0, kEver});
  remove_span(kGatheredWhole, {0, kEver});
}

std::vector<TimeRange> Holes::to_audit() {
  TimeRanges ranges = covered();
  for (const TimeRange& range : lost()) ranges.add(range);
  for (const TimeRange& range : spans(kAudited).all()) ranges.remove(range);
  return ranges.all();
}

void Holes::forget(std::int64_t before) {
  static constexpr char kLost[] = "DELETE FROM lost WHERE until < ?";
  ledger_.query(kLost).bind(before).run();
  for (const char* kind : {kCovered, kAudited, kGatheredWhole}) remove_span(kind, {0, before - 1});
}

TimeRanges Holes::spans(const char* kind) {
  static constexpr char kSql[] = "SELECT start, until FROM span WHERE kind = ?";
  TimeRanges found;
  Query& rows = ledger_.query(kSql).bind(kind);
  while (rows.step()) found.add({rows.integer(0), rows.integer(1)});
  return found;
}

// The spans of a kind do not touch each other.
void Holes::add_span(const char* kind, TimeRange range) {
  static constexpr char kUnion[] =
      "SELECT min(start), max(until) FROM span WHERE kind = ? AND start <= ? AND until >= ?";
  static constexpr char kRemove[] = "DELETE FROM span WHERE kind = ? AND start BETWEEN ? AND ?";
  static constexpr char kInsert[] = "INSERT INTO span VALUES (?, ?, ?)";
  if (range.is_empty()) return;
  Query& touched = ledger_.query(kUnion).bind(kind).bind(range.end + 1).bind(range.begin - 1);
  // Of no row both are NULL.
  if (touched.step() && touched.integer(1) != 0) {
    range = {std::min(range.begin, touched.integer(0)), std::max(range.end, touched.integer(1))};
  }
  touched.restart();
  ledger_.query(kRemove).bind(kind).bind(range.begin).bind(range.end).run();
  ledger_.query(kInsert).bind(kind).bind(range.begin).bind(range.end).run();
}

void Holes::remove_span(const char* kind, TimeRange range) {
  static constexpr char kAfter[] =
      "INSERT INTO span SELECT kind, ?3 + 1, until FROM span "
      "WHERE kind = ?1 AND start <= ?3 AND until > ?3";
  static constexpr char kWithin[] = "DELETE FROM span WHERE kind = ? AND start BETWEEN ? AND ?";
  static constexpr char kBefore[] =
      "UPDATE span SET until = ?2 - 1 WHERE kind = ?1 AND start < ?2 AND until >= ?2";
  if (range.is_empty()) return;
  ledger_.query(kAfter).bind(kind).bind(range.begin).bind(range.end).run();
  ledger_.query(kWithin).bind(kind).bind(range.begin).bind(range.end).run();
  ledger_.query(kBefore).bind(kind).bind(range.begin).run();
}

}  // namespace corvane::coverage
