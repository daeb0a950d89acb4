#include "companions/alert/delivery/delivery_queue.h"

#include <vector>

#include "finding/words.h"

namespace corvane::alert {

namespace {

constexpr std::int64_t kKeepDelivered = 2 * kDay;  // longer than any storm's window

}  // namespace

std::int64_t DeliveryQueue::add_message(std::int64_t incident, const std::string& record,
                                        Severity severity, std::int64_t created, const Words& words,
                                        const std::string& details) {
  static constexpr char kSql[] =
      "INSERT INTO message (incident, record, severity, created, subject, body, details) "
      "VALUES (?, ?, ?, ?, ?, ?, ?)";
  state_.query(kSql)
      .bind(incident)
      .bind(record)
      .bind(severity)
      .bind(created)
      .bind(words.subject)
      .bind(words.body)
      .bind(details)
      .run();
  return state_.last_rowid();
}

void DeliveryQueue::add_delivery(const NewDelivery& delivery) {
  static const std::string kSql = typed_sql(
      "INSERT INTO delivery (message, channel, kind, incident, severity, state, created, held, "
      "not_before, attempts, failing_since, reason, summary) "
      "VALUES (?, ?, ?, ?, ?, {waiting}, ?, ?7, ?7, 0, 0, '', 0)");
  state_.query(kSql)
      .bind(delivery.message)
      .bind(delivery.channel)
      .bind(delivery.kind)
      .bind(delivery.incident)
      .bind(delivery.severity)
      .bind(delivery.created)
      .bind(delivery.held)
      .run();
}

bool DeliveryQueue::replace_untold(std::int64_t incident, const std::string& channel) {
  static const std::string kFind = typed_sql(
      "SELECT d.message, d.kind, m.record FROM delivery d JOIN message m ON m.id = d.message "
      "WHERE d.incident = ? AND d.channel = ? AND d.state = {waiting} AND d.attempts = 0 "
      "AND d.kind IN ({begin}, {rise})");
  static const std::string kReplace =
      typed_sql("UPDATE delivery SET state = {replaced} WHERE message = ? AND channel = ?");
  static constexpr char kCount[] = "UPDATE record SET pending = pending - 1 WHERE anomaly_id = ?";
  struct Untold {
    std::int64_t message;
    Kind kind;
    std::string record;
  };
  std::vector<Untold> untold;
  Query& rows = state_.query(kFind).bind(incident).bind(channel);
  while (rows.step()) {
    untold.push_back({rows.integer(0), static_cast<Kind>(rows.integer(1)), rows.text(2)});
  }
  bool had_begin = false;
  for (const Untold& one : untold) {
    state_.query(kReplace).bind(one.message).bind(channel).run();
    state_.query(kCount).bind(one.record).run();
    had_begin = had_begin || one.kind == Kind::kBegin;
  }
  return had_begin;
}

void DeliveryQueue::fold_storm(const NewDelivery& delivery, const StormRule& rule) {
  static const std::string kCount = typed_sql(
      "SELECT count(*) FROM (SELECT 1 FROM delivery WHERE channel = ? AND kind = ? AND held = ? "
      "AND created > ? AND state <> {replaced} LIMIT ?)");
  static const std::string kFoldOne = typed_sql(
      "UPDATE delivery SET state = {folded}, summary = ? WHERE message = ? AND channel = ?");
  static const std::string kFoldAll = typed_sql(
      "UPDATE delivery SET state = {folded}, summary = ? WHERE channel = ? AND kind = ? AND held = "
      "? AND created > ? AND state = {waiting} AND attempts = 0");
  static constexpr char kPostpone[] =
      "UPDATE delivery SET severity = max(severity, ?), "
      "not_before = max(not_before, min(?, created + ?)) WHERE message = ? AND channel = ?";
  // Everything that the quiet hours hold back is sent at the same time.
  const std::int64_t since = delivery.held != 0 ? 0 : delivery.created - rule.window;
  Query& count = state_.query(kCount)
                     .bind(delivery.channel)
                     .bind(delivery.kind)
                     .bind(delivery.held)
                     .bind(since)
                     .bind(rule.limit + 1);
  count.step();
  const bool is_storm = count.integer(0) > rule.limit;
  count.restart();
  if (!is_storm) return;

  std::int64_t summary = find_summary(delivery);
  if (summary != 0) {
    state_.query(kFoldOne).bind(summary).bind(delivery.message).bind(delivery.channel).run();
  } else {
    summary = add_summary(delivery, rule);
    state_.query(kFoldAll)
        .bind(summary)
        .bind(delivery.channel)
        .bind(delivery.kind)
        .bind(delivery.held)
        .bind(since)
        .run();
  }
  state_.query(kPostpone)
      .bind(delivery.severity)
      .bind(delivery.created + rule.settle)
      .bind(rule.longest_settle)
      .bind(summary)
      .bind(delivery.channel)
      .run();
}

// The summary that has not been sent yet; 0: there is none.
std::int64_t DeliveryQueue::find_summary(const NewDelivery& delivery) {
  static const std::string kSql = typed_sql(
      "SELECT message FROM delivery WHERE channel = ? AND kind = {summary} AND held = ? AND state "
      "= {waiting} AND attempts = 0");
  return state_.query(kSql).bind(delivery.channel).bind(delivery.held).first_integer();
}

std::int64_t DeliveryQueue::add_summary(const NewDelivery& delivery, const StormRule& rule) {
  static const std::string kLast = typed_sql(
      "SELECT max(created) FROM delivery WHERE channel = ? AND kind = {summary} AND held = 0");
  static constexpr char kWait[] =
      "UPDATE delivery SET not_before = max(not_before, ?) WHERE message = ? AND channel = ?";
  const std::int64_t last = state_.query(kLast).bind(delivery.channel).first_integer();

  NewDelivery summary = delivery;
  summary.kind = Kind::kSummary;
  summary.incident = 0;
  summary.message = add_message(0, "", delivery.severity, delivery.created, {}, "");
  add_delivery(summary);
  if (delivery.held == 0 && last > 0 && last <= delivery.created) {
    state_.query(kWait).bind(last + rule.window).bind(summary.message).bind(summary.channel).run();
  }
  return summary.message;
}

void DeliveryQueue::prune(std::int64_t now) {
  // Pending messages, parts of a pending summary and dead letters are still needed.
  static const std::string kDeliveries = typed_sql(
      "DELETE FROM delivery WHERE message IN (SELECT id FROM message m WHERE created < ? AND NOT "
      "EXISTS (SELECT 1 FROM delivery d WHERE d.message = m.id AND d.state IN "
      "({waiting}, {folded}, {given_up})))");
  static constexpr char kMessages[] =
      "DELETE FROM message WHERE created < ? AND NOT EXISTS "
      "(SELECT 1 FROM delivery d WHERE d.message = message.id)";
  state_.query(kDeliveries).bind(now - kKeepDelivered).run();
  state_.query(kMessages).bind(now - kKeepDelivered).run();
}

}  // namespace corvane::alert
