#include "companions/alert/daemon.h"

#include <exception>
#include <stdexcept>
#include <vector>

#include "companions/alert/delivery/outbox.h"
#include "companions/common/error_text.h"
#include "platform/clock.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"

namespace corvane::alert {

namespace {

constexpr int kLookEverySeconds = 2;
constexpr int kTryAgainAfterSeconds = 5;
constexpr int kEndWithinMs = 600;
constexpr int kReconfigureWithinMs = 5000;
constexpr std::int64_t kSettleSeconds = 5;  // a storm's anomalies come within a few passes
constexpr std::int64_t kPruneEverySeconds = 3600;

}  // namespace

Daemon::Daemon(const Options& options, StopSignals& signals)
    : options_(options),
      signals_(signals),
      master_(master_name(options)),
      config_(options.config_path()),
      lock_(options.own_file(".lock")),
      senders_({options.own_file(".db"), options.own_file(".dead")}, master_) {}

int Daemon::step() {
  try {
    follow_configuration();
    if (!has_settings_) return kLookEverySeconds;
    follow_files();
    if (intake_ == nullptr) open();
    if (has_new_settings_ || must_restart_) use_settings();
    look();
    prune();
    if (heartbeat_.is_due()) state_->set_number(kLastPass, now());
    if (!problem_.empty()) logmsg(kLogEvent, kAlertProgram, "The databases can be used again");
    problem_.clear();
    return kLookEverySeconds;
  } catch (const std::exception& error) {
    complain(reason_of(error));
    intake_.reset();
    state_.reset();
    return kTryAgainAfterSeconds;
  }
}

void Daemon::end() { senders_.end(kEndWithinMs, true); }

void Daemon::follow_configuration() {
  if (!config_.changed()) return;
  Settings fresh;
  std::vector<std::string> complaints;
  if (!read_settings(options_.config_path(), fresh, complaints)) {
    if (has_settings_) {
      logmsg(kLogWarning, kAlertProgram,
             "The configuration file is malformed or unreadable. Keeping the former settings");
    } else {
      logmsg(kLogError, kAlertProgram,
             "The configuration file is malformed or unreadable. No anomalies are read until it is "
             "fixed");
    }
    return;
  }
  for (const std::string& complaint : complaints) {
    logmsg(kLogWarning, kAlertProgram, complaint.c_str());
  }
  if (has_settings_) logmsg(kLogEvent, kAlertProgram, "Configuration reloaded");
  if (!has_settings_ || !(fresh == settings_)) has_new_settings_ = true;
  settings_ = fresh;
  has_settings_ = true;
}

// What is open may belong to files that have been replaced.
void Daemon::follow_files() {
  if (!anomalies_.is_same()) intake_.reset();
  if (state_file_.is_same()) return;
  intake_.reset();
  state_.reset();
  must_restart_ = true;
}

void Daemon::open() {
  if (!lock_.take()) {
    throw std::runtime_error("another cvanomalyalert is using " + options_.database_path());
  }
  if (state_ == nullptr) state_ = std::make_unique<StateDatabase>(options_.own_file(".db"));
  heartbeat_.reset();
  state_file_.remember(options_.own_file(".db"));
  anomalies_.remember(options_.database_path());
  intake_ = std::make_unique<Intake>(options_.database_path(), *state_, master_, kSettleSeconds,
                                     [this] { return signals_.arrived(); });
}

// Senders that do not end in time keep their settings until the next step.
void Daemon::use_settings() {
  if (!senders_.end(kReconfigureWithinMs, must_restart_)) return;
  senders_.start(settings_, Outbox(*state_).channels_waited_for());
  has_new_settings_ = must_restart_ = false;
}

void Daemon::look() {
  const std::int64_t version = state_->data_version();
  const bool has_news = intake_->has_news();
  intake_->set_settings(settings_);
  if (has_news) {
    const PassCounts counts = intake_->pass(now());
    if (counts.records + counts.ended > 0) {
      logmsgf(kLogDetail, kAlertProgram,
              "New anomalies: %zu, new incidents: %zu, resolved incidents: %zu", counts.records,
              counts.incidents, counts.ended);
      senders_.wake();
    }
  }
  // An anomaly that was delivered may have come back without its mark.
  if (has_news || version != state_version_) intake_->mark_processed();
  if (version != state_version_) {
    senders_.wake();  // somebody may have made dead letters pending again
  }
  state_version_ = version;
}

void Daemon::prune() {
  // The clock may have been set back.
  if (pruned_ && now() >= *pruned_ && now() < *pruned_ + kPruneEverySeconds) return;
  intake_->prune(now());
  intake_->mark_processed();  // dropped dead letters may have been all that was pending
  pruned_ = now();
}

void Daemon::complain(const std::string& reason) {
  if (reason == problem_) return;
  logmsgf(kLogError, kAlertProgram, "Cannot use the databases, trying again: %s", reason.c_str());
  problem_ = reason;
}

int run_daemon(const Options& options) {
  StopSignals signals;
  logmsg(kLogEvent, kAlertProgram, "Started");
  // Never destroyed: that would wait for threads that hang.
  auto* daemon = new Daemon(options, signals);
  int seconds = 0;
  while (!signals.wait(seconds)) seconds = daemon->step();
  logmsg(kLogEvent, kAlertProgram, "Signal received, stopping");
  daemon->end();
  return 0;
}

}  // namespace corvane::alert
