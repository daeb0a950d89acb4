// The program's modes: the daemon, and what people call by hand.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "companions/common/heartbeat.h"
#include "companions/detect/detector.h"
#include "companions/detect/options.h"
#include "util/file_watch.h"

namespace corvane::detect {

// What the daemon does again and again, one step at a time. Logs under the program's tag.
class Daemon {
 public:
  // Reads the configuration; logs each invalid value. `stop`: as Detector takes it.
  Daemon(const Options& options, std::function<bool()> stop);

  // Reads a changed configuration, opens a replaced database anew, and judges what is new. Returns
  // the seconds until the next step. When the database cannot be used, that is logged once for each
  // reason; nothing is thrown.
  int step();

 private:
  void follow_files();
  void open();
  void pass();
  void note_pass();
  void complain(const std::string& reason);

  Options options_;
  std::function<bool()> stop_;
  FileWatch config_;
  Settings settings_;
  FileIdentity database_;
  FileIdentity verdicts_;  // the detection's own database
  std::unique_ptr<Detector> detector_;
  std::int64_t pass_seconds_ = 0;  // that the last pass took
  Heartbeat heartbeat_;            // of passes that have ended
  Heartbeat progress_;             // of the pass that lasts
  std::string problem_;            // the reason logged last; empty while the database can be used
  int failures_ = 0;               // in a row
};

// Runs until SIGTERM or SIGINT, then returns 0.
int run_daemon(const Options& options);

// Judges the waiting records and prints the counts. 0: done; 1: the database cannot be used, the
// reason is on standard error and in the log.
int run_once(const Options& options);

// Print to standard output. 0: done; 1: nothing to print, the reason is on standard error.
int run_backtest(const Options& options);
int run_explain(const Options& options);

}  // namespace corvane::detect
