// The daemon: follows the files, reads new anomalies, and keeps the channels' senders running.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "companions/alert/delivery/senders.h"
#include "companions/alert/incident/intake.h"
#include "companions/alert/options.h"
#include "companions/alert/settings_file.h"
#include "companions/alert/state_database.h"
#include "companions/common/heartbeat.h"
#include "companions/common/program_lock.h"
#include "companions/common/stop_signals.h"
#include "util/file_watch.h"

namespace corvane::alert {

// The steps of the daemon. For one thread; the senders have threads of their own. While the
// databases cannot be used it tries again, and logs a reason once until they can be used again.
class Daemon {
 public:
  // `signals` must outlive it.
  Daemon(const Options& options, StopSignals& signals);

  // Returns the seconds until the next step. Throws nothing of its own.
  int step();
  // Stops the senders, within 0.6 seconds. Those that hang are left running.
  void end();

 private:
  void follow_configuration();
  void follow_files();
  void open();
  void use_settings();
  void look();
  void prune();
  void complain(const std::string& reason);

  Options options_;
  StopSignals& signals_;
  std::string master_;
  FileWatch config_;
  ProgramLock lock_;
  Settings settings_;
  bool has_settings_ = false;
  bool has_new_settings_ = false;
  bool must_restart_ = false;  // all senders, including the web service's
  FileIdentity anomalies_;
  FileIdentity state_file_;
  std::unique_ptr<StateDatabase> state_;
  std::unique_ptr<Intake> intake_;
  std::optional<std::int64_t> state_version_;
  std::optional<std::int64_t> pruned_;  // when
  Heartbeat heartbeat_;
  std::string problem_;  // the reason that was logged last
  Senders senders_;
};

// Runs until SIGTERM or SIGINT. Returns the exit status, which the caller passes to _exit() at
// once: a channel that hangs may have left a thread behind.
int run_daemon(const Options& options);

}  // namespace corvane::alert
