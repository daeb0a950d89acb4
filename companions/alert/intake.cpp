#include "companions/alert/intake.h"

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <utility>

#include "companions/alert/quiet_hours.h"
#include "companions/alert/sentence.h"
#include "platform/debug_log.h"

namespace corvane::alert {

namespace {

constexpr char kProgram[] = "cvanomalyalert";
constexpr char kHistoryPosition[] = "history";  // the last row of the history that was looked at
constexpr std::size_t kRowsPerTransaction = 64;
constexpr std::size_t kMarksPerTransaction = 500;
constexpr std::int64_t kLongestSettle = 60;  // of a summary, in seconds

// What two streams that match have in common.
std::string place_of(const StreamKey& stream) {
  return stream.client + '\n' + stream.policy + '\n' + stream.policy_type + '\n' +
         stream.schedule_type + '\n' + stream.schedule_name;
}

// Since when each open incident is over: its stream had a usual backup after the last record.
class Endings {
 public:
  explicit Endings(const std::vector<Incident>& open) : open_(open), until_(open.size(), 0) {
    for (std::size_t i = 0; i < open.size(); ++i) {
      if (!open[i].has_stream) continue;
      by_place_[place_of(open[i].stream)].push_back(i);
      since_ = std::min(since_.value_or(open[i].last_time), open[i].last_time);
    }
  }

  // No backup up to then can be an end; absent: no incident can end.
  std::optional<std::int64_t> since() const { return since_; }

  void see(const AnomalyStore::UsualBackup& backup) {
    if (backup.by_people) return;  // an anomaly that is not to be one
    const auto found = by_place_.find(place_of(backup.stream));
    if (found == by_place_.end()) return;
    for (const std::size_t i : found->second) {
      if (backup.time <= open_[i].last_time || !open_[i].stream.matches(backup.stream)) continue;
      until_[i] = until_[i] == 0 ? backup.time : std::min(until_[i], backup.time);
    }
  }

  std::int64_t until(std::size_t i) const { return until_[i]; }  // 0: it goes on

 private:
  const std::vector<Incident>& open_;
  std::vector<std::int64_t> until_;
  std::unordered_map<std::string, std::vector<std::size_t>> by_place_;
  std::optional<std::int64_t> since_;
};

}  // namespace

Intake::Intake(const std::string& database, StateDatabase& state, std::string master,
               std::int64_t settle, std::function<bool()> stop)
    : state_(state),
      store_(database),
      ledger_(state),
      master_(std::move(master)),
      settle_(settle),
      stop_(std::move(stop)) {}

bool Intake::has_news() { return store_.data_version() != seen_version_; }

PassCounts Intake::pass(std::int64_t now) {
  PassCounts counts;
  const std::int64_t version = store_.data_version();
  {
    const AnomalyStore::Snapshot snapshot(store_);
    take_in_new(counts, now);
    if (!stop_()) end_what_is_over(counts, now);
  }
  if (!stop_()) seen_version_ = version;
  return counts;
}

void Intake::take_in_new(PassCounts& counts, std::int64_t now) {
  const std::vector<std::int64_t> rowids = store_.unprocessed();
  for (std::size_t at = 0; at < rowids.size() && !stop_();) {
    Transaction transaction(state_.handle());
    std::size_t taken = 0;
    for (; at < rowids.size() && taken < kRowsPerTransaction && !stop_(); ++at) {
      const std::optional<AnomalyRow> row = store_.row(rowids[at]);
      if (!row || ledger_.knows_record(row->id)) continue;
      take_in(*row, counts, now);
      ++taken;
    }
    transaction.commit();
    counts.records += taken;
  }
}

void Intake::take_in(const AnomalyRow& row, PassCounts& counts, std::int64_t now) {
  Anomaly anomaly = read_anomaly(row);
  Incident incident = incident_of(anomaly);
  if (incident.id == 0) ++counts.incidents;
  const bool is_silent = !incident.is_open;
  ledger_.put_incident(incident, now);
  anomaly.incident_id = incident.anomaly_id;

  const Words words = words_for_anomaly(anomaly, incident.first_time, master_);
  const std::int64_t message =
      ledger_.add_message(incident.id, anomaly.id, incident.severity, now, words, anomaly.details);
  deliver({message, kWeb, Kind::kReport, incident.id, incident.severity, now, 0});
  const std::size_t people = is_silent ? 0 : tell_people(incident, anomaly, message, now);
  ledger_.add_record(anomaly.id, 1 + people);
}

// Of the database, or new; with this record in it.
Incident Intake::incident_of(const Anomaly& anomaly) {
  Incident incident = ledger_.find_incident(anomaly.incident).value_or(Incident{});
  if (incident.id == 0) {
    incident.name = anomaly.incident;
    incident.anomaly_id = anomaly.incident_id;
    incident.first_time = anomaly.known_time();
  }
  incident.last_anomaly = anomaly.id;
  incident.stream = anomaly.stream;
  incident.has_stream = anomaly.has_stream;
  incident.first_time = std::min(incident.first_time, anomaly.known_time());
  incident.last_time = std::max(incident.last_time, anomaly.known_time());
  incident.severity = std::max(incident.severity, anomaly.severity);
  incident.cause = anomaly.cause;
  ++incident.records;
  incident.is_open = !store_.is_false_positive(incident.anomaly_id);
  return incident;
}

// A channel hears of what it has not heard of, and when it gets worse.
std::size_t Intake::tell_people(const Incident& incident, const Anomaly& anomaly,
                                std::int64_t message, std::int64_t now) {
  std::size_t told = 0;
  for (const std::string& channel : settings_.people()) {
    const int severity = anomaly.severity;
    const int known = ledger_.told(incident.id, channel);
    if (severity < settings_.least_severity(channel) || severity <= known) continue;
    const bool is_first = ledger_.replace_untold(incident.id, channel) || known == 0;
    const std::int64_t held = severity == 1 ? end_of_quiet(settings_.quiet, now) : 0;
    deliver({message, channel, is_first ? Kind::kBegin : Kind::kRise, incident.id, severity, now,
             held});
    ledger_.set_told(incident.id, channel, severity);
    ++told;
  }
  return told;
}

void Intake::deliver(const NewDelivery& delivery) {
  ledger_.add_delivery(delivery);
  if (delivery.channel == kWeb) return;  // it has all of them, one by one
  ledger_.fold_storm(delivery, {settings_.storm_limit, std::int64_t{60} * settings_.storm_minutes,
                                settle_, settle_ == 0 ? 0 : kLongestSettle});
}

void Intake::end_what_is_over(PassCounts& counts, std::int64_t now) {
  std::vector<Incident> open = ledger_.open_incidents();
  close_false_positives(open, now);
  const std::int64_t last = store_.last_history_rowid();
  std::int64_t position = state_.number(kHistoryPosition);
  if (position > last) position = 0;  // another database, or one that was emptied
  Endings endings(open);
  if (endings.since() && position < last) {
    store_.read_history(position, *endings.since(),
                        [&](const AnomalyStore::UsualBackup& backup) { endings.see(backup); });
  }
  Transaction transaction(state_.handle());
  for (std::size_t i = 0; i < open.size(); ++i) {
    if (endings.until(i) == 0) continue;
    end(open[i], endings.until(i), now);
    ++counts.ended;
  }
  if (position != last) state_.set_number(kHistoryPosition, last);
  transaction.commit();
}

void Intake::close_false_positives(std::vector<Incident>& open, std::int64_t now) {
  std::erase_if(open, [&](const Incident& incident) {
    if (!store_.is_false_positive(incident.anomaly_id)) return false;
    Transaction transaction(state_.handle());
    ledger_.close_incident(incident.id, now, now);
    ledger_.forget_told(incident.id);
    transaction.commit();
    logmsgf(4, kProgram, "People say that [%s] is a false positive", incident.anomaly_id.c_str());
    return true;
  });
}

// Whom nobody told that it began, nobody tells that it ended.
void Intake::end(const Incident& incident, std::int64_t until, std::int64_t now) {
  const bool adopted = is_adopted(store_.details(incident.anomaly_id));
  const Words words =
      words_for_end({incident.stream, incident.first_time, until, incident.records, adopted});
  // What it was stays with the incident at the web service.
  const std::string details =
      read_anomaly({incident.last_anomaly, store_.details(incident.last_anomaly), "", "", 0})
          .details;
  ledger_.close_incident(incident.id, until, now);
  const std::int64_t message =
      ledger_.add_message(incident.id, "", incident.severity, now, words, details);
  deliver({message, kWeb, Kind::kEnd, incident.id, incident.severity, now, 0});
  for (const std::string& channel : settings_.people()) {
    const int severity = ledger_.told(incident.id, channel);
    if (severity == 0) continue;
    const std::int64_t held = severity == 1 ? end_of_quiet(settings_.quiet, now) : 0;
    deliver({message, channel, Kind::kEnd, incident.id, severity, now, held});
  }
  ledger_.forget_told(incident.id);
}

std::size_t Intake::mark_processed() {
  std::size_t marked = 0;
  for (;;) {
    const std::vector<std::string> done = ledger_.done_records(kMarksPerTransaction);
    if (done.empty()) return marked;
    store_.mark_processed(done);
    Transaction transaction(state_.handle());
    for (const std::string& id : done) ledger_.forget_record(id);
    transaction.commit();
    marked += done.size();
  }
}

}  // namespace corvane::alert
