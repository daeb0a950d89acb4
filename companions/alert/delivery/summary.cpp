#include "companions/alert/delivery/summary.h"

#include <jansson.h>

#include <algorithm>
#include <map>
#include <vector>

#include "finding/cause.h"
#include "finding/words.h"
#include "platform/c_handles.h"
#include "util/json.h"

namespace corvane::alert {

namespace {

constexpr std::int64_t kInWords = 20;
constexpr std::int64_t kInJson = 1000;

#define FOLDED                                                                          \
  " FROM delivery d JOIN message m ON m.id = d.message LEFT JOIN incident i ON i.id = " \
  "d.incident WHERE d.summary = ? AND d.summary <> 0 AND d.channel = ? "

struct Totals {
  std::int64_t all = 0;
  std::map<Kind, std::int64_t> kinds;
  std::map<Severity, std::int64_t, std::greater<>> severities;
  std::int64_t clients = 0;
  std::int64_t first = 0;
  std::int64_t last = 0;
};

class Folded {
 public:
  Folded(StateDatabase& state, std::int64_t summary, const std::string& channel)
      : state_(state), summary_(summary), channel_(channel) {}
  template <typename Sql>
  Query& query(const Sql& sql) const {
    return state_.query(sql).bind(summary_).bind(channel_);
  }

 private:
  StateDatabase& state_;
  std::int64_t summary_;
  const std::string& channel_;
};

Totals read_totals(const Folded& folded) {
  static constexpr char kTotals[] =
      "SELECT d.kind, d.severity, count(*), min(m.created), max(m.created)" FOLDED
      "GROUP BY d.kind, d.severity";
  static constexpr char kClients[] = "SELECT count(DISTINCT i.client)" FOLDED;
  Totals totals;
  Query& rows = folded.query(kTotals);
  while (rows.step()) {
    const std::int64_t number = rows.integer(2);
    const auto kind = static_cast<Kind>(rows.integer(0));
    totals.all += number;
    totals.kinds[kind] += number;
    if (kind != Kind::kEnd) totals.severities[severity_of(rows.integer(1))] += number;
    totals.first = totals.first == 0 ? rows.integer(3) : std::min(totals.first, rows.integer(3));
    totals.last = std::max(totals.last, rows.integer(4));
  }
  totals.clients = folded.query(kClients).first_integer();
  return totals;
}

std::string joined(const std::string& before, const char* between, const std::string& more) {
  return before.empty() ? more : before + between + more;
}

std::string kinds_in_words(const Totals& totals) {
  std::string words;
  for (const auto& [kind, number] : totals.kinds) {
    const std::string one = kind == Kind::kEnd ? counted(number, "back to normal", "back to normal")
                            : kind == Kind::kRise
                                ? counted(number, "now worse", "now worse")
                                : counted(number, "new incident", "new incidents");
    words = joined(words, ", ", one);
  }
  return words;
}

// "encryption (9)".
std::string with_number(std::string_view words, std::int64_t number) {
  return std::string(words) + " (" + number_text(static_cast<double>(number)) + ")";
}

// Empty when all of them are back to normal.
std::string severities_in_words(const Totals& totals) {
  std::string words;
  for (const auto& [severity, number] : totals.severities) {
    words = joined(words, ", ", with_number(words_for(severity), number));
  }
  return words.empty() ? words : "By severity: " + words + ".\n";
}

std::string causes_in_words(const Folded& folded) {
  static const std::string kSql =
      typed_sql("SELECT i.cause, count(*)" FOLDED "AND d.kind <> {end} GROUP BY i.cause");
  std::map<std::string, std::int64_t> numbers;
  Query& rows = folded.query(kSql);
  while (rows.step()) numbers[noun_for(cause_of(rows.view(0)))] += rows.integer(1);
  std::vector<std::pair<std::string, std::int64_t>> causes(numbers.begin(), numbers.end());
  std::ranges::stable_sort(causes, std::ranges::greater{},
                           &std::pair<std::string, std::int64_t>::second);
  std::string words;
  for (const auto& [cause, number] : causes) {
    words = joined(words, ", ", with_number(cause, number));
  }
  return words.empty() ? words : "Likely causes: " + words + ".\n";
}

std::string list_in_words(const Folded& folded, const Totals& totals) {
  static constexpr char kSql[] =
      "SELECT m.subject" FOLDED "ORDER BY d.severity DESC, d.message LIMIT ?";
  std::string words = totals.all > kInWords ? "The most severe:\n" : "All of them:\n";
  Query& rows = folded.query(kSql).bind(kInWords);
  while (rows.step()) words += "  " + rows.text(0) + "\n";
  return words;
}

std::string details_of(const Folded& folded, const Totals& totals) {
  static constexpr char kSql[] =
      "SELECT d.kind, d.severity, i.anomaly_id, i.client, i.policy, i.schedule_name, i.cause, "
      "m.subject" FOLDED "ORDER BY d.severity DESC, d.message LIMIT ?";
  const JsonPtr root(json_object());
  put(root.get(), "total", totals.all);
  JsonPtr incidents(json_array());
  Query& rows = folded.query(kSql).bind(kInJson);
  while (rows.step()) {
    JsonPtr entry(json_object());
    put(entry.get(), "kind", name_of(static_cast<Kind>(rows.integer(0))));
    put(entry.get(), "severity", rows.integer(1));
    put(entry.get(), "id", rows.view(2));
    put(entry.get(), "clientName", rows.view(3));
    put(entry.get(), "policyName", rows.view(4));
    put(entry.get(), "scheduleName", rows.view(5));
    put(entry.get(), "cause", rows.view(6));
    put(entry.get(), "subject", rows.view(7));
    append(incidents.get(), std::move(entry));
  }
  put(root.get(), "incidents", std::move(incidents));
  return without_nul(json_text(root.get()));
}

}  // namespace

void write_summary(StateDatabase& state, std::int64_t id, const std::string& channel,
                   Message& message) {
  const Folded folded(state, id, channel);
  const Totals totals = read_totals(folded);
  const std::string kinds = kinds_in_words(totals);
  const std::string first = utc_text(totals.first);
  const std::string last = utc_text(totals.last);
  message.subject =
      "Many alerts at once: " + kinds + ", on " + counted(totals.clients, "client", "clients");
  message.body = first == last ? "At " + first : "Between " + first + " and " + last;
  message.body += ": " + kinds + ", on " + counted(totals.clients, "client", "clients") + ".\n";
  message.body += severities_in_words(totals) + causes_in_words(folded);
  message.body += list_in_words(folded, totals);
  message.body += "The web interface of the master server lists them all.\n";
  message.cause = "storm";
  message.since = totals.first;
  message.records = totals.all;
  message.details = details_of(folded, totals);
}

}  // namespace corvane::alert
