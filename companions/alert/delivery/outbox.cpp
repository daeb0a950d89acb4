#include "companions/alert/delivery/outbox.h"

#include <algorithm>

#include "companions/alert/delivery/backoff.h"
#include "companions/alert/delivery/summary.h"

namespace corvane::alert {

namespace {

// An earlier message of the same incident is sent first.
#define NOT_BEHIND_ANOTHER                                                                  \
  " AND NOT EXISTS (SELECT 1 FROM delivery o WHERE o.incident = d.incident AND o.incident " \
  "<> 0 AND o.channel = d.channel AND o.state IN ({waiting}, {folded}) AND o.message < d.message)"

}  // namespace

Outbox::Outbox(StateDatabase& state) : state_(state), tag_(state.tag()) {}

std::optional<Delivery> Outbox::begin(const std::string& channel, std::int64_t now) {
  static constexpr char kPause[] = "SELECT paused_until FROM channel WHERE name = ?";
  // A message that is refused again and again must not hold up the others.
  static const std::string kNext = typed_sql(
      "SELECT message, kind, attempts FROM delivery d WHERE channel = ? AND state = {waiting} "
      "AND not_before <= ?" NOT_BEHIND_ANOTHER " ORDER BY attempts, message LIMIT 1");
  static const std::string kBegin = typed_sql(
      "UPDATE delivery SET attempts = attempts + 1 WHERE message = ? AND channel = ? "
      "AND state = {waiting}");
  const std::int64_t paused_until = state_.query(kPause).bind(channel).first_integer();
  // A pause longer than the longest is left over from before the clock was set back.
  if (paused_until > now && paused_until <= now + kLongestPauseSeconds) return std::nullopt;

  // First without a transaction: mostly there is nothing.
  if (!state_.query(kNext).bind(channel).bind(now).has_row()) return std::nullopt;

  Transaction transaction(state_);
  Query& row = state_.query(kNext).bind(channel).bind(now);
  if (!row.step()) return std::nullopt;
  Delivery delivery;
  delivery.message = row.integer(0);
  delivery.channel = channel;
  delivery.attempts = row.integer(2) + 1;
  const auto kind = static_cast<Kind>(row.integer(1));
  row.restart();
  delivery.content = content_of(delivery.message, kind, channel);
  state_.query(kBegin).bind(delivery.message).bind(channel).run();
  transaction.commit();
  return delivery;
}

Message Outbox::content_of(std::int64_t message, Kind kind, const std::string& channel) {
  static constexpr char kSql[] =
      "SELECT m.severity, m.created, m.subject, m.body, m.details, i.anomaly_id, i.name, "
      "i.client, i.policy, i.schedule_name, i.cause, i.first_time, i.until, i.records "
      "FROM message m LEFT JOIN incident i ON i.id = m.incident WHERE m.id = ?";
  Message content;
  content.kind = kind;
  Query& row = state_.query(kSql).bind(message);
  if (row.step()) {
    content.severity = severity_of(row.integer(0));
    content.created = row.integer(1);
    content.subject = row.view(2);
    content.body = row.view(3);
    content.details = row.view(4);
    content.anomaly_id = row.view(5);
    content.incident = row.view(6);
    content.client = row.view(7);
    content.policy = row.view(8);
    content.schedule = row.view(9);
    content.cause = row.view(10);
    content.since = row.integer(11);
    content.until = row.integer(12);
    content.records = row.integer(13);
  }
  row.restart();
  // The time keeps it unique even if a power failure undid the last messages.
  content.alert = tag_ + "-" + std::to_string(content.created) + "-" + std::to_string(message);
  if (kind == Kind::kSummary) {
    static constexpr char kSeverity[] =
        "SELECT severity FROM delivery WHERE message = ? AND channel = ?";
    content.severity =
        severity_of(state_.query(kSeverity).bind(message).bind(channel).first_integer());
    write_summary(state_, message, channel, content);
  }
  return content;
}

void Outbox::taken(const Delivery& delivery, std::int64_t now) {
  static const std::string kCount = typed_sql(
      "UPDATE record SET pending = pending - 1 WHERE anomaly_id IN (SELECT m.record "
      "FROM delivery d JOIN message m ON m.id = d.message WHERE d.message = ?1 "
      "AND d.channel = ?2 AND d.state = {waiting})");
  static const std::string kTake = typed_sql(
      "UPDATE delivery SET state = {delivered} WHERE message = ? AND channel = ? "
      "AND state = {waiting}");
  // A record has at most one message for each channel.
  static const std::string kCountFolded = typed_sql(
      "UPDATE record SET pending = pending - 1 WHERE anomaly_id IN (SELECT m.record "
      "FROM delivery d JOIN message m ON m.id = d.message WHERE d.summary = ?1 "
      "AND d.summary <> 0 AND d.channel = ?2 AND d.state = {folded})");
  static const std::string kTakeFolded = typed_sql(
      "UPDATE delivery SET state = {delivered} WHERE summary = ? AND summary <> 0 "
      "AND channel = ? AND state = {folded}");
  static constexpr char kChannel[] =
      "INSERT INTO channel VALUES (?1, 0, 0, 0, '', ?2, 1) "
      "ON CONFLICT (name) DO UPDATE SET failures = 0, paused_until = 0, failing_since = 0, "
      "last_success = ?2, taken = taken + 1";
  // The channel works, so the day that other messages have starts again.
  static const std::string kOthers = typed_sql(
      "UPDATE delivery SET failing_since = 0 WHERE channel = ? AND state = {waiting} "
      "AND failing_since > 0 AND attempts = 0");
  Transaction transaction(state_);
  for (const std::string* sql : {&kCount, &kTake, &kCountFolded, &kTakeFolded}) {
    state_.query(*sql).bind(delivery.message).bind(delivery.channel).run();
  }
  static constexpr char kWasFailing[] =
      "SELECT 1 FROM channel WHERE name = ? AND failing_since > 0";
  if (state_.query(kWasFailing).bind(delivery.channel).first_integer() != 0) {
    state_.query(kOthers).bind(delivery.channel).run();
  }
  state_.query(kChannel).bind(delivery.channel).bind(now).run();
  transaction.commit();
}

void Outbox::failed(const Delivery& delivery, const std::string& reason, std::int64_t now) {
  static constexpr char kFailures[] = "SELECT failures FROM channel WHERE name = ?";
  static constexpr char kChannel[] =
      "INSERT INTO channel VALUES (?1, 1, ?2, ?3, ?4, 0, 0) "
      "ON CONFLICT (name) DO UPDATE SET failures = failures + 1, paused_until = ?2, "
      "failing_since = iif(failing_since = 0, ?3, failing_since), last_error = ?4";
  static constexpr char kMessage[] =
      "UPDATE delivery SET not_before = ?, reason = ? WHERE message = ? AND channel = ?";
  // Messages behind it are late because of the channel, too.
  static const std::string kOverdueFrom = typed_sql(
      "UPDATE delivery SET failing_since = ?2 WHERE channel = ?1 AND state = {waiting} "
      "AND not_before <= ?3 AND failing_since = 0");
  Transaction transaction(state_);
  const std::int64_t failures = state_.query(kFailures).bind(delivery.channel).first_integer() + 1;
  state_.query(kChannel)
      .bind(delivery.channel)
      .bind(now + pause_after(failures, chance()))
      .bind(now)
      .bind(reason)
      .run();
  const std::int64_t not_before = now + pause_after(delivery.attempts, chance());
  state_.query(kMessage)
      .bind(not_before)
      .bind(reason)
      .bind(delivery.message)
      .bind(delivery.channel)
      .run();
  state_.query(kOverdueFrom).bind(delivery.channel).bind(now).bind(not_before).run();
  transaction.commit();
}

std::vector<Delivery> Outbox::overdue(const std::string& channel, std::int64_t now,
                                      std::size_t most) {
  static const std::string kSql = typed_sql(
      "SELECT message, kind, attempts, reason FROM delivery WHERE channel = ? "
      "AND state = {waiting} AND failing_since > 0 AND failing_since <= ? ORDER BY message "
      "LIMIT ?");
  std::vector<Delivery> overdue;
  std::vector<Kind> kinds;
  Query& rows = state_.query(kSql)
                    .bind(channel)
                    .bind(now - kGiveUpAfterSeconds)
                    .bind(static_cast<std::int64_t>(most));
  while (rows.step()) {
    overdue.push_back({rows.integer(0), channel, {}, rows.integer(2), rows.text(3)});
    kinds.push_back(static_cast<Kind>(rows.integer(1)));
  }
  for (std::size_t i = 0; i < overdue.size(); ++i) {
    overdue[i].content = content_of(overdue[i].message, kinds[i], channel);
  }
  return overdue;
}

void Outbox::give_up(const std::vector<Delivery>& deliveries) {
  static const std::string kSql = typed_sql(
      "UPDATE delivery SET state = {given_up} WHERE message = ? AND channel = ? "
      "AND state = {waiting}");
  Transaction transaction(state_);
  for (const Delivery& one : deliveries) {
    state_.query(kSql).bind(one.message).bind(one.channel).run();
  }
  transaction.commit();
}

std::int64_t Outbox::seconds_to_next(const std::string& channel, std::int64_t now,
                                     std::int64_t longest) {
  static constexpr char kPause[] = "SELECT paused_until FROM channel WHERE name = ?";
  static const std::string kNext = typed_sql(
      "SELECT min(not_before), count(*) FROM delivery d WHERE channel = ? AND state = "
      "{waiting}" NOT_BEHIND_ANOTHER);
  Query& next = state_.query(kNext).bind(channel);
  next.step();
  const bool waits = next.integer(1) > 0;
  const std::int64_t due = next.integer(0);
  next.restart();
  if (!waits) return longest;
  const std::int64_t paused_until = state_.query(kPause).bind(channel).first_integer();
  return std::clamp<std::int64_t>(std::max(due, paused_until) - now, 0, longest);
}

void Outbox::end_pauses() {
  static constexpr char kChannels[] = "UPDATE channel SET paused_until = 0";
  // Quiet hours still hold.
  static const std::string kDeliveries =
      typed_sql("UPDATE delivery SET not_before = held WHERE state = {waiting}");
  Transaction transaction(state_);
  state_.query(kChannels).run();
  state_.query(kDeliveries).run();
  transaction.commit();
}

std::int64_t Outbox::revive() {
  static const std::string kSql = typed_sql(
      "UPDATE delivery SET state = {waiting}, not_before = 0, failing_since = 0, reason = '' "
      "WHERE state = {given_up}");
  Transaction transaction(state_);
  state_.query(kSql).run();
  const std::int64_t revived = state_.changes();
  transaction.commit();
  return revived;
}

std::int64_t Outbox::drop_dead_letters(const std::string& channel) {
  // With what was folded into them.
  static constexpr char kDead[] =
      "FROM delivery d JOIN message m ON m.id = d.message WHERE d.channel = ?1 AND (d.state = "
      "{given_up} OR d.state = {folded} AND d.summary IN (SELECT message FROM "
      "delivery WHERE channel = ?1 AND state = {given_up}))";
  static const std::string kCount =
      typed_sql("UPDATE record SET pending = pending - 1 WHERE anomaly_id IN (SELECT m.record " +
                std::string(kDead) + ")");
  static const std::string kDrop =
      typed_sql("DELETE FROM delivery WHERE channel = ?1 AND message IN (SELECT d.message " +
                std::string(kDead) + ")");
  state_.query(kCount).bind(channel).run();
  state_.query(kDrop).bind(channel).run();
  return state_.changes();
}

std::vector<std::string> Outbox::channels_waited_for() {
  static const std::string kSql =
      typed_sql("SELECT DISTINCT channel FROM delivery WHERE state IN ({waiting}, {folded})");
  std::vector<std::string> channels;
  Query& rows = state_.query(kSql);
  while (rows.step()) channels.push_back(rows.text(0));
  return channels;
}

std::vector<ChannelStatus> Outbox::status() {
  static const std::string kSql = typed_sql(
      "SELECT n.name, (SELECT count(*) FROM delivery WHERE channel = n.name "
      "AND state IN ({waiting}, {folded}) AND kind <> {summary}), (SELECT min(created) "
      "FROM delivery WHERE channel = n.name AND state IN ({waiting}, {folded})), "
      "(SELECT count(*) FROM delivery WHERE channel = n.name AND state = {given_up}), c.taken, "
      "c.failures, c.paused_until, c.failing_since, c.last_success, c.last_error, "
      "(SELECT min(max(created, held)) FROM delivery WHERE channel = n.name "
      "AND state IN ({waiting}, {folded})) FROM (SELECT name FROM channel UNION SELECT channel "
      "FROM delivery) n LEFT JOIN channel c ON c.name = n.name ORDER BY n.name");
  std::vector<ChannelStatus> all;
  Query& rows = state_.query(kSql);
  while (rows.step()) {
    all.push_back({rows.text(0), rows.integer(1), rows.integer(2), rows.integer(3), rows.integer(4),
                   rows.integer(5), rows.integer(6), rows.integer(7), rows.integer(8), rows.text(9),
                   rows.integer(10)});
  }
  return all;
}

const char* words_for(DeliveryState state) {
  switch (state) {
    case DeliveryState::kWaiting:
      return "pending";
    case DeliveryState::kFolded:
      return "part of a summary";
    case DeliveryState::kDelivered:
      return "delivered";
    case DeliveryState::kGivenUp:
      return "dead letter";
    case DeliveryState::kReplaced:
      return "replaced";
  }
  return "unknown";
}

std::vector<ToldMessage> Outbox::told_of(const std::string& incident) {
  static constexpr char kSql[] =
      "SELECT d.channel, d.kind, d.state, d.created, d.reason FROM incident i "
      "JOIN delivery d ON d.incident = i.id WHERE i.name = ? ORDER BY d.message, d.channel";
  std::vector<ToldMessage> all;
  Query& rows = state_.query(kSql).bind(incident);
  while (rows.step()) {
    all.push_back({rows.text(0), static_cast<Kind>(rows.integer(1)),
                   static_cast<DeliveryState>(rows.integer(2)), rows.integer(3), rows.text(4)});
  }
  return all;
}

std::optional<RecordState> Outbox::state_of(const std::string& anomaly_id, Severity severity) {
  static constexpr char kRecord[] = "SELECT incident FROM record WHERE anomaly_id = ?";
  static const std::string kOwn = typed_sql(
      "SELECT coalesce(max(d.state = {delivered}), 0), coalesce(min(d.held) FILTER "
      "(WHERE d.state IN ({waiting}, {folded}, {given_up})), 0), "
      "coalesce(max(d.held) FILTER (WHERE d.state IN ({waiting}, {folded})), 0) "
      "FROM delivery d JOIN message m ON m.id = d.message WHERE d.incident = ? AND m.record = ?");
  // Deliveries are forgotten after some days, what a channel was told is not.
  static const std::string kBefore = typed_sql(
      "SELECT 1 FROM told t WHERE t.incident = ?1 AND t.severity >= ?2 AND NOT EXISTS (SELECT 1 "
      "FROM delivery d WHERE d.incident = t.incident AND d.channel = t.channel AND d.severity >= "
      "?2 AND d.state IN ({waiting}, {folded}, {given_up}))");
  Query& record = state_.query(kRecord).bind(anomaly_id);
  if (!record.step()) return std::nullopt;
  const std::int64_t incident = record.integer(0);
  record.restart();
  Query& own = state_.query(kOwn).bind(incident).bind(anomaly_id);
  own.step();
  const bool is_delivered = own.integer(0) != 0;
  const std::int64_t held = own.integer(1) == 0 ? 0 : own.integer(2);
  own.restart();
  return RecordState{
      is_delivered ||
          state_.query(kBefore).bind(incident).bind(std::int64_t{number_of(severity)}).has_row(),
      held};
}

}  // namespace corvane::alert
