#include "companions/alert/daemon.h"

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "companions/alert/delivery/outbox.h"
#include "companions/alert/delivery/senders.h"
#include "companions/alert/incident/intake.h"
#include "companions/alert/program_lock.h"
#include "companions/alert/settings_file.h"
#include "companions/alert/state_database.h"
#include "companions/common/error_text.h"
#include "companions/common/stop_signals.h"
#include "platform/clock.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"
#include "util/file_watch.h"

namespace corvane::alert {

namespace {

constexpr int kLookEverySeconds = 2;
constexpr int kTryAgainAfterSeconds = 5;
constexpr int kEndWithinMs = 600;
constexpr int kReconfigureWithinMs = 5000;
constexpr std::int64_t kSettleSeconds = 5;  // a storm's anomalies come within a few passes
constexpr std::int64_t kPruneEverySeconds = 3600;

// One reason is said once, until the databases can be used again.
class Daemon {
 public:
  Daemon(const Options& options, StopSignals& signals)
      : options_(options),
        signals_(signals),
        master_(master_name(options)),
        config_(options.config_path()),
        lock_(options.own_file(".lock")),
        senders_({options.own_file(".db"), options.own_file(".dead")}, master_) {}

  // Gives the seconds until the next step.
  int step() {
    try {
      follow_configuration();
      if (!has_settings_) return kLookEverySeconds;
      follow_files();
      if (intake_ == nullptr) open();
      if (has_new_settings_ || must_restart_) use_settings();
      look();
      if (!trouble_.empty()) logmsg(kLogEvent, kAlertProgram, "The databases can be used again");
      trouble_.clear();
      return kLookEverySeconds;
    } catch (const std::exception& error) {
      complain(reason_of(error));
      intake_.reset();
      state_.reset();
      return kTryAgainAfterSeconds;
    }
  }

  void end() { senders_.end(kEndWithinMs, true); }

 private:
  void follow_configuration() {
    if (!config_.changed()) return;
    Settings fresh;
    std::vector<std::string> complaints;
    if (!read_settings(options_.config_path(), fresh, complaints)) {
      if (has_settings_) {
        logmsg(kLogWarning, kAlertProgram,
               "Half a configuration file. Not changing any current behaviour");
      } else {
        logmsg(kLogError, kAlertProgram,
               "Half a configuration file. Nothing is taken in until it is mended");
      }
      return;
    }
    for (const std::string& complaint : complaints) {
      logmsg(kLogWarning, kAlertProgram, complaint.c_str());
    }
    if (has_settings_) logmsg(kLogEvent, kAlertProgram, "Configuration read again");
    has_new_settings_ = !has_settings_ || !(fresh == settings_);
    settings_ = fresh;
    has_settings_ = true;
  }

  // What is open belongs to files that were there before.
  void follow_files() {
    if (!anomalies_.is_same()) intake_.reset();
    if (state_file_.is_same()) return;
    intake_.reset();
    state_.reset();
    must_restart_ = true;
  }

  void open() {
    if (!is_locked_) is_locked_ = lock_.take();
    if (!is_locked_) {
      throw std::runtime_error("another cvanomalyalert works on " + options_.database_path());
    }
    if (state_ == nullptr) state_ = std::make_unique<StateDatabase>(options_.own_file(".db"));
    state_file_.remember(options_.own_file(".db"));
    anomalies_.remember(options_.database_path());
    intake_ = std::make_unique<Intake>(options_.database_path(), *state_, master_, kSettleSeconds,
                                       [this] { return signals_.arrived(); });
    intake_->set_settings(settings_);
  }

  // Senders that do not end in time go on as they are until the next step.
  void use_settings() {
    intake_->set_settings(settings_);
    if (!senders_.end(kReconfigureWithinMs, must_restart_)) return;
    senders_.start(settings_, Outbox(*state_).channels_waited_for());
    has_new_settings_ = must_restart_ = false;
  }

  void look() {
    const std::int64_t version = state_->data_version();
    if (intake_->has_news()) {
      const PassCounts counts = intake_->pass(now());
      if (counts.records + counts.ended > 0) {
        logmsgf(kLogDetail, kAlertProgram, "Took in %zu anomalies, %zu new incidents, %zu ended",
                counts.records, counts.incidents, counts.ended);
        senders_.wake();
      }
    }
    if (version != state_version_) {
      intake_->mark_processed();
      senders_.wake();  // somebody may have asked for given up messages again
    }
    state_version_ = version;
    if (now() >= next_prune_ || now() < next_prune_ - kPruneEverySeconds) {
      intake_->prune(now());
      next_prune_ = now() + kPruneEverySeconds;
    }
  }

  void complain(const std::string& reason) {
    if (reason == trouble_) return;
    logmsgf(kLogError, kAlertProgram, "Cannot use the databases, trying again: %s", reason.c_str());
    trouble_ = reason;
  }

  Options options_;
  StopSignals& signals_;
  std::string master_;
  FileWatch config_;
  ProgramLock lock_;
  bool is_locked_ = false;
  Settings settings_;
  bool has_settings_ = false;
  bool has_new_settings_ = false;
  bool must_restart_ = false;  // the senders, with that of the web service
  FileIdentity anomalies_;
  FileIdentity state_file_;
  std::unique_ptr<StateDatabase> state_;
  std::unique_ptr<Intake> intake_;
  std::int64_t state_version_ = -1;
  std::int64_t next_prune_ = 0;
  std::string trouble_;
  Senders senders_;
};

}  // namespace

int run_daemon(const Options& options) {
  StopSignals signals;
  logmsg(kLogEvent, kAlertProgram, "Started");
  // Never destroyed: that would wait for threads that hang.
  auto* daemon = new Daemon(options, signals);
  int seconds = 0;
  while (!signals.wait(seconds)) seconds = daemon->step();
  logmsg(kLogEvent, kAlertProgram, "Ending, as asked by a signal");
  daemon->end();
  return 0;
}

}  // namespace corvane::alert
