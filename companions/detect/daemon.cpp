#include "companions/detect/daemon.h"

#include <chrono>
#include <csignal>
#include <exception>
#include <memory>
#include <string>

#include "companions/detect/backtest.h"
#include "companions/detect/detector.h"
#include "companions/detect/settings_file.h"
#include "platform/console.h"
#include "platform/debug_log.h"
#include "sqlite/sqlite_exception.h"

namespace corvane::detect {

namespace {

using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;

constexpr char kProgram[] = "cvanomalydetect";
constexpr int kLookEverySeconds = 2;
constexpr int kTryAgainAfterSeconds = 5;

// SIGTERM and SIGINT are blocked and taken when the program looks for them.
class StopSignals {
 public:
  StopSignals() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGTERM);
    sigaddset(&signals_, SIGINT);
    sigprocmask(SIG_BLOCK, &signals_, nullptr);
  }

  bool arrived() { return wait(0); }

  // Up to so many seconds; true when it is time to stop, now and from then on.
  bool wait(int seconds) {
    const timespec limit{seconds, 0};
    if (!stopped_ && sigtimedwait(&signals_, nullptr, &limit) > 0) stopped_ = true;
    return stopped_;
  }

 private:
  sigset_t signals_{};
  bool stopped_ = false;
};

std::string reason_of(const std::exception& error) {
  const auto* of_sqlite = dynamic_cast<const sqlite_exception*>(&error);
  std::string reason = error.what();
  if (of_sqlite != nullptr && !of_sqlite->inner_message().empty()) {
    reason += " (" + of_sqlite->inner_message() + ")";
  }
  return reason;
}

Settings settings_of(const Options& options) {
  Settings settings;
  settings.eps = options.eps;
  settings.min_samples = options.min_samples;
  std::vector<std::string> complaints;
  read_settings(options.config_file, settings, complaints);
  for (const std::string& complaint : complaints) logmsg(8, kProgram, complaint.c_str());
  return settings;
}

// One reason is said once, until the database can be used again.
class Daemon {
 public:
  Daemon(const Options& options, StopSignals& signals)
      : options_(options),
        signals_(signals),
        config_(options.config_file),
        settings_(settings_of(options)) {
    config_.changed();
  }

  // Gives the seconds until the next step.
  int step() {
    try {
      follow_files();
      if (detector_ == nullptr) open();
      if (detector_->has_news()) pass();
      if (!trouble_.empty()) logmsg(4, kProgram, "The database can be used again");
      trouble_.clear();
      return kLookEverySeconds;
    } catch (const std::exception& error) {
      complain(reason_of(error));
      detector_.reset();
      return kTryAgainAfterSeconds;
    }
  }

 private:
  void follow_files() {
    if (config_.changed()) {
      settings_ = settings_of(options_);
      logmsg(4, kProgram, "Configuration read again");
      if (detector_ != nullptr) detector_->set_settings(settings_);
    }
    if (detector_ != nullptr && !database_.same_file()) detector_.reset();
  }

  void open() {
    database_.remember(options_.database_path());
    detector_ = std::make_unique<Detector>(options_.database_path(), settings_,
                                           [this] { return signals_.arrived(); });
  }

  void pass() {
    const auto begin = std::chrono::steady_clock::now();
    const PassCounts counts = detector_->pass();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    if (counts.normal + counts.learning + counts.anomalous == 0) return;
    logmsgf(2, kProgram, "Judged %zu normal, %zu learning, %zu anomalous in %.3f s", counts.normal,
            counts.learning, counts.anomalous, took.count());
  }

  void complain(const std::string& reason) {
    if (reason == trouble_) return;
    logmsgf(16, kProgram, "Cannot use the database, trying again: %s", reason.c_str());
    trouble_ = reason;
  }

  // A database that was removed or replaced while it is open.
  class DatabaseFile {
   public:
    void remember(const std::string& path) {
      path_ = path;
      found_ = stat(path.c_str(), &seen_) == 0;
    }
    bool same_file() const {
      struct stat now {};
      return found_ && stat(path_.c_str(), &now) == 0 && now.st_ino == seen_.st_ino &&
             now.st_dev == seen_.st_dev;
    }

   private:
    std::string path_;
    bool found_ = false;
    struct stat seen_ {};
  };

  Options options_;
  StopSignals& signals_;
  FileWatch config_;
  Settings settings_;
  DatabaseFile database_;
  std::unique_ptr<Detector> detector_;
  std::string trouble_;
};

int complain_on_console(const std::exception& error) {
  const std::string text = std::string(kProgram) + ": " + reason_of(error);
  write_console_error(text + "\n");
  logmsg(16, kProgram, text.c_str());
  return 1;
}

}  // namespace

int run_daemon(const Options& options) {
  StopSignals signals;
  logmsg(4, kProgram, "Started");
  Daemon daemon(options, signals);
  int seconds = 0;
  while (!signals.wait(seconds)) seconds = daemon.step();
  logmsg(4, kProgram, "Ending, as asked by a signal");
  return 0;
}

int run_once(const Options& options) {
  try {
    StopSignals signals;
    Detector detector(options.database_path(), settings_of(options),
                      [&] { return signals.arrived(); });
    const PassCounts counts = detector.pass();
    write_console(std::to_string(counts.normal) + " normal, " + std::to_string(counts.learning) +
                  " learning, " + std::to_string(counts.anomalous) + " anomalous\n");
    return 0;
  } catch (const std::exception& error) {
    return complain_on_console(error);
  }
}

int run_backtest(const Options& options) {
  try {
    write_console(backtest(options.database_path(), settings_of(options), options.backtest_days,
                           options.json));
    return 0;
  } catch (const std::exception& error) {
    return complain_on_console(error);
  }
}

int run_explain(const Options& options) {
  try {
    const std::string text =
        explain(options.database_path(), settings_of(options), options.unique_key);
    if (text.empty()) {
      write_console_error("No backup has the key " + options.unique_key + "\n");
      return 1;
    }
    write_console(text);
    return 0;
  } catch (const std::exception& error) {
    return complain_on_console(error);
  }
}

}  // namespace corvane::detect
