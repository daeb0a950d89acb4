#include "companions/alert/incident/intake.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "anomaly_database/anomaly_database.h"
#include "anomaly_database/backups.h"
#include "companions/alert/delivery/outbox.h"
#include "companions/alert/incident/endings.h"
#include "companions/alert/incident/sentence.h"
#include "companions/alert/quiet_hours.h"
#include "finding/finding_json.h"
#include "finding/incident.h"
#include "finding/words.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"

namespace corvane::alert {

namespace {

// The rowid of the last row of the history that was read.
constexpr char kHistoryPosition[] = "history";
constexpr std::size_t kRowsPerTransaction = 64;
constexpr std::size_t kMarksPerTransaction = 500;
constexpr std::int64_t kLongestSettle = 60;  // seconds that a summary waits for more
constexpr std::int64_t kLookForPurgedAfter = 90 * kDay;
// A channel may be missing from the settings by mistake. The name of the number is followed by that
// of the channel.
constexpr std::int64_t kKeepOfRemoved = 7 * kDay;
constexpr char kMissingSince[] = "missing_since_";

}  // namespace

Intake::Intake(const std::string& database, StateDatabase& state, std::string master,
               std::int64_t settle, std::function<bool()> stop)
    : state_(state),
      database_(open_for_companion(database)),
      book_(state),
      queue_(state),
      master_(std::move(master)),
      settle_(settle),
      stop_(std::move(stop)) {}

bool Intake::has_news() { return database_.data_version() != seen_version_; }

PassCounts Intake::pass(std::int64_t now) {
  PassCounts counts;
  const std::int64_t version = database_.data_version();
  {
    const Transaction snapshot(database_, Transaction::Kind::kSnapshot);
    // First: nobody is notified of a false positive.
    follow_feedback(now);
    take_in_new(counts, now);
    if (!stop_()) resolve_ended(counts, now);
  }
  if (!stop_()) seen_version_ = version;
  return counts;
}

void Intake::take_in_new(PassCounts& counts, std::int64_t now) {
  const std::vector<std::string> ids = unprocessed_anomalies(database_);
  for (std::size_t at = 0; at < ids.size() && !stop_();) {
    Transaction transaction(state_);
    std::size_t taken = 0;
    for (; at < ids.size() && taken < kRowsPerTransaction && !stop_(); ++at) {
      if (take_in_next(ids[at], counts, now)) ++taken;
    }
    transaction.commit();
    counts.records += taken;
  }
}

// False for a known record. If its mark was lost in a power failure it is marked again.
bool Intake::take_in_next(const std::string& id, PassCounts& counts, std::int64_t now) {
  if (book_.knows_record(id)) {
    book_.set_marked(id, false);
    return false;
  }
  std::optional<AnomalyRow> row = find_anomaly_row(database_, id);
  if (!row) return false;
  take_in(std::move(*row), counts, now);
  return true;
}

void Intake::take_in(AnomalyRow row, PassCounts& counts, std::int64_t now) {
  const JsonPtr parsed = parse_details(row.details);
  const std::string details = details_for_receivers(row.details, parsed.get());
  const Anomaly anomaly = read_anomaly(std::move(row), parsed.get());
  KnownIncident incident = incident_of(anomaly, now);
  if (incident.id == 0) ++counts.incidents;
  book_.put_incident(incident, now);

  const Words words =
      words_for_anomaly(anomaly, {incident.first_time, incident.anomaly_id, master_});
  const std::int64_t message =
      queue_.add_message(incident.id, anomaly.row.id, incident.severity, now, words, details);
  deliver({message, kWeb, Kind::kReport, incident.id, incident.severity, now, 0});
  const std::size_t people =
      incident.is_open() ? tell_people(incident, anomaly.finding.severity, message, now) : 0;
  book_.add_record(anomaly.row.id, incident.id, 1 + people);
}

// The known incident or a new one, with this record added. A false positive stays resolved. Any
// other is ongoing again, as the record may be later than the normal backup that resolved it.
KnownIncident Intake::incident_of(const Anomaly& anomaly, std::int64_t now) {
  const Finding& finding = anomaly.finding;
  KnownIncident incident = book_.find_incident(anomaly.incident).value_or(KnownIncident{});
  if (incident.id == 0) {
    incident.name = anomaly.incident;
    // A record with a foreign name says nothing about the name of the first one.
    const bool is_foreign = unique_key_of(anomaly.row.id).empty();
    if (!is_foreign) incident.anomaly_id = first_record_of(anomaly.incident);
    if (incident.anomaly_id.empty()) incident.anomaly_id = anomaly.row.id;
    incident.first_time = anomaly.time();
  }
  if (anomaly.time() >= incident.last_time) {  // not if it was judged late
    incident.last_anomaly = anomaly.row.id;
    incident.stream = finding.stream;
    incident.has_stream = finding.has_stream;
    incident.cause = finding.likeliest_cause();
  }
  incident.first_time = std::min(incident.first_time, anomaly.time());
  incident.last_time = std::max(incident.last_time, anomaly.time());
  incident.severity = std::max(incident.severity, finding.severity);
  ++incident.records;
  if (!false_positives_.contains(incident.name)) {
    incident.end = IncidentEnd::kNone;
    incident.until = std::max(incident.until, finding.usual_since);
    if (incident.until <= incident.last_time) incident.until = 0;
  } else if (incident.end != IncidentEnd::kFalsePositive) {
    incident.end = IncidentEnd::kFalsePositive;
    incident.until = now;
    say_false_positive(incident);
  }
  return incident;
}

// A channel is notified of a new incident, and when the severity rises.
std::size_t Intake::tell_people(const KnownIncident& incident, Severity severity,
                                std::int64_t message, std::int64_t now) {
  std::size_t told = 0;
  for (const std::string& channel : settings_.people()) {
    const Severity known = book_.told(incident.id, channel);
    if (number_of(severity) < settings_.least_severity(channel) || severity <= known) continue;
    const bool is_first = queue_.replace_untold(incident.id, channel) || known == Severity::kNone;
    const std::int64_t held =
        severity == Severity::kWarning ? end_of_quiet(settings_.quiet, now) : 0;
    deliver({message, channel, is_first ? Kind::kBegin : Kind::kRise, incident.id, severity, now,
             held});
    book_.set_told(incident.id, channel, severity);
    ++told;
  }
  return told;
}

void Intake::deliver(const NewDelivery& delivery) {
  queue_.add_delivery(delivery);
  if (delivery.channel == kWeb) return;  // it gets every message by itself
  queue_.fold_storm(delivery, {settings_.storm_limit, std::int64_t{60} * settings_.storm_minutes,
                               settle_, kLongestSettle});
}

// The name of a record's incident. A record that is neither in the book nor in the anomaly database
// can only be the first of its incident.
std::string Intake::incident_of_record(const std::string& id) {
  if (std::string name = book_.incident_of_record(id); !name.empty()) return name;
  if (const auto known = former_records_.find(id); known != former_records_.end()) {
    return known->second;
  }
  std::optional<AnomalyRow> row = find_anomaly_row(database_, id);
  if (!row) return incident_name(unique_key_of(id));
  return former_records_[id] = read_anomaly(std::move(*row)).incident;
}

void Intake::follow_feedback(std::int64_t now) {
  false_positives_.clear();
  // Feedback that is gone was purged, not withdrawn.
  std::unordered_set<std::string> withdrawn;
  read_feedback(database_, [&](const std::string& id, Feedback feedback) {
    auto& names = feedback == Feedback::kFalsePositive ? false_positives_ : withdrawn;
    names.insert(incident_of_record(id));
  });
  Transaction transaction(state_);
  for (const KnownIncident& incident : book_.open_incidents()) {
    if (!false_positives_.contains(incident.name)) continue;
    book_.set_end(incident.id, IncidentEnd::kFalsePositive, now, now);
    say_false_positive(incident);
  }
  for (const KnownIncident& incident : book_.ended_by(IncidentEnd::kFalsePositive)) {
    const bool is_said_still = false_positives_.contains(incident.name);
    if (!is_said_still && withdrawn.contains(incident.name)) reopen(incident, now);
  }
  transaction.commit();
}

void Intake::say_false_positive(const KnownIncident& incident) {
  logmsgf(kLogEvent, kAlertProgram, "Anomaly [%s] was marked as a false positive",
          incident.anomaly_id.c_str());
}

// A normal backup may have come in the meantime, so the whole history is read again.
void Intake::reopen(const KnownIncident& incident, std::int64_t now) {
  std::int64_t until = 0;
  if (const auto latest = find_anomaly_row(database_, incident.last_anomaly)) {
    until = read_anomaly(*latest).finding.usual_since;
  }
  book_.set_end(incident.id, IncidentEnd::kNone, until > incident.last_time ? until : 0, now);
  state_.set_number(kHistoryPosition, 0);
  logmsgf(kLogEvent, kAlertProgram, "Anomaly [%s] is no longer marked as a false positive",
          incident.anomaly_id.c_str());
}

void Intake::resolve_ended(PassCounts& counts, std::int64_t now) {
  const std::vector<KnownIncident> open = book_.open_incidents();
  const std::int64_t last = last_history_rowid(database_);
  std::int64_t position = state_.number_of(kHistoryPosition);
  if (position > last) position = 0;  // another database, or one that was emptied
  Endings endings(open);
  if (endings.since() && position < last) {
    read_accepted(database_, position, *endings.since(),
                  [&](const StreamKey& stream, std::int64_t time) { endings.see(stream, time); });
  }
  Transaction transaction(state_);
  for (std::size_t i = 0; i < open.size(); ++i) {
    // A change is adopted with a backup that enters the history.
    const bool may_be_adopted = position < last || counts.records > 0 || endings.until(i) != 0;
    if (may_be_adopted && end(open[i], endings.until(i), now)) ++counts.ended;
  }
  if (position != last) state_.set_number(kHistoryPosition, last);
  transaction.commit();
}

// False when it is ongoing. A channel that was not notified of the incident is not notified of its
// end.
bool Intake::end(const KnownIncident& incident, std::int64_t accepted, std::int64_t now) {
  const std::optional<BackupReference> adopted = adopted_with(incident.anomaly_id);
  IncidentFacts facts;
  facts.last = incident.last_time;
  facts.last_accepted = accepted;
  facts.is_adopted = adopted.has_value();
  const IncidentEnd end = end_of(facts);
  if (end == IncidentEnd::kNone) return false;
  const std::int64_t until = accepted != 0 ? accepted : adopted->time > 0 ? adopted->time : now;
  const Words words = words_for_end(
      {incident.stream, incident.first_time, until, incident.records, facts.is_adopted});
  // The web service keeps the details with the incident.
  const AnomalyRow latest =
      find_anomaly_row(database_, incident.last_anomaly).value_or(AnomalyRow{});
  const std::string details =
      details_for_receivers(latest.details, parse_details(latest.details).get());
  book_.set_end(incident.id, end, until, now);
  const std::int64_t message =
      queue_.add_message(incident.id, "", incident.severity, now, words, details);
  deliver({message, kWeb, Kind::kEnd, incident.id, incident.severity, now, 0});
  for (const std::string& channel : settings_.people()) {
    const Severity severity = book_.told(incident.id, channel);
    if (severity == Severity::kNone) continue;
    const std::int64_t held =
        severity == Severity::kWarning ? end_of_quiet(settings_.quiet, now) : 0;
    deliver({message, channel, Kind::kEnd, incident.id, severity, now, held});
  }
  book_.forget_told(incident.id);
  return true;
}

// The backup with which the incident's change became part of the baseline.
std::optional<BackupReference> Intake::adopted_with(const std::string& first_record) {
  std::optional<AnomalyRow> row = find_anomaly_row(database_, first_record);
  // Most were not adopted and need not be parsed.
  if (!row || row->details.find("adopted") == std::string::npos) return std::nullopt;
  return read_anomaly(std::move(*row)).finding.adopted;
}

std::size_t Intake::mark_processed() {
  std::size_t marked = 0;
  for (;;) {
    const std::vector<std::string> done = book_.done_records(kMarksPerTransaction);
    if (done.empty()) return marked;
    {
      Transaction transaction(database_);
      for (const std::string& id : done) corvane::mark_processed(database_, id);
      transaction.commit();
    }
    Transaction transaction(state_);
    for (const std::string& id : done) book_.set_marked(id, true);
    transaction.commit();
    marked += done.size();
  }
}

// Whether the settings have lacked a channel for so long that nobody meant to keep it.
bool Intake::is_removed(const std::string& channel, std::int64_t now) {
  const std::string number = kMissingSince + channel;
  const std::int64_t since = state_.number_of(number);
  const std::vector<std::string> people = settings_.people();
  if (channel == kWeb || std::ranges::count(people, channel) > 0) {
    if (since != 0) state_.set_number(number, 0);
    return false;
  }
  if (since == 0 || since > now) {  // the clock was set back
    state_.set_number(number, now);
    return false;
  }
  return now - since >= kKeepOfRemoved;
}

// Nobody can send them. The file of dead letters still has them.
void Intake::drop_dead_letters(std::int64_t now) {
  Outbox outbox(state_);
  for (const ChannelStatus& channel : outbox.status()) {
    if (!is_removed(channel.name, now)) continue;
    const std::int64_t dropped = outbox.drop_dead_letters(channel.name);
    if (dropped == 0) continue;
    logmsgf(kLogEvent, kAlertProgram, "Channel %s is not configured any more: %s dropped",
            channel.name.c_str(), counted(dropped, "dead letter", "dead letters").c_str());
  }
}

void Intake::prune(std::int64_t now) {
  Transaction transaction(state_);
  drop_dead_letters(now);
  queue_.prune(now);
  for (const KnownIncident& incident : book_.unchanged_since(now - kLookForPurgedAfter)) {
    if (!has_anomaly(database_, incident.last_anomaly)) book_.forget(incident.id);
  }
  transaction.commit();
}

}  // namespace corvane::alert
