#include "companions/detect/daemon.h"

#include <chrono>
#include <csignal>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "anomaly_database/anomaly_database.h"
#include "companions/common/error_text.h"
#include "companions/common/stop_signals.h"
#include "companions/detect/replay.h"
#include "companions/detect/settings_file.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"
#include "util/json.h"

namespace corvane::detect {

namespace {

constexpr int kLookEverySeconds = 2;
constexpr int kTryAgainAfterSeconds = 5;
constexpr int kMostFailures = 2;  // in a row, before passes count as no progress

Settings settings_of(const Options& options) {
  Settings settings;
  settings.eps = options.eps;
  settings.min_samples = options.min_samples;
  std::vector<std::string> complaints;
  read_settings(options.config_file, settings, complaints);
  for (const std::string& complaint : complaints) {
    logmsg(kLogWarning, kDetectionProgram, complaint.c_str());
  }
  return settings;
}

}  // namespace

Daemon::Daemon(const Options& options, std::function<bool()> stop)
    : options_(options), stop_(std::move(stop)), config_(options.config_file) {
  config_.changed();  // before the file is read: a change in between is noticed by the first step
  settings_ = settings_of(options_);
}

int Daemon::step() {
  try {
    follow_files();
    if (detector_ == nullptr) open();
    if (detector_->has_news()) pass();
    if (heartbeat_.is_due()) note_pass();
    if (!problem_.empty()) logmsg(kLogEvent, kDetectionProgram, "The database can be used again");
    problem_.clear();
    failures_ = 0;
    return kLookEverySeconds;
  } catch (const std::exception& error) {
    complain(reason_of(error));
    ++failures_;
    detector_.reset();
    return kTryAgainAfterSeconds;
  }
}

void Daemon::follow_files() {
  if (config_.changed()) {
    settings_ = settings_of(options_);
    logmsg(kLogEvent, kDetectionProgram, "Configuration reloaded");
    if (detector_ != nullptr) detector_->set_settings(settings_);
  }
  if (!database_.is_same() || !verdicts_.is_same()) detector_.reset();
}

void Daemon::open() {
  database_.remember(options_.database_path());
  heartbeat_.reset();
  // Asked again and again while a pass goes on. One that fails again and again is no progress.
  const auto stop = [this] {
    if (failures_ < kMostFailures && progress_.is_due()) note_pass();
    return stop_();
  };
  detector_ = std::make_unique<Detector>(options_.database_path(), settings_, stop);
  verdicts_.remember(detector_->verdict_path());
}

void Daemon::pass() {
  progress_.restart();
  const auto begin = std::chrono::steady_clock::now();
  const PassCounts counts = detector_->pass();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  pass_seconds_ = std::chrono::duration_cast<std::chrono::seconds>(took).count();
  if (counts.normal + counts.learning + counts.anomalous == 0) return;
  logmsgf(kLogDetail, kDetectionProgram, "Judged %zu normal, %zu learning, %zu anomalous in %.3f s",
          counts.normal, counts.learning, counts.anomalous, took.count());
}

void Daemon::note_pass() { detector_->note_pass({now(), pass_seconds_}); }

void Daemon::complain(const std::string& reason) {
  if (reason == problem_) return;
  logmsgf(kLogError, kDetectionProgram, "Cannot use the database, trying again: %s",
          reason.c_str());
  problem_ = reason;
}

int run_daemon(const Options& options) {
  StopSignals signals;
  logmsg(kLogEvent, kDetectionProgram, "Started");
  Daemon daemon(options, [&] { return signals.arrived(); });
  int seconds = 0;
  while (!signals.wait(seconds)) seconds = daemon.step();
  logmsg(kLogEvent, kDetectionProgram, "Signal received, stopping");
  return 0;
}

int run_once(const Options& options) {
  return guarded(kDetectionProgram, [&] {
    StopSignals signals;
    Detector detector(options.database_path(), settings_of(options),
                      [&] { return signals.arrived(); });
    const PassCounts counts = detector.pass();
    write_console(std::to_string(counts.normal) + " normal, " + std::to_string(counts.learning) +
                  " learning, " + std::to_string(counts.anomalous) + " anomalous\n");
    return 0;
  });
}

int run_backtest(const Options& options) {
  return guarded(kDetectionProgram, [&] {
    Connection database = open_for_reading(options.database_path());
    const Backtest result = backtest(database, settings_of(options), options.backtest_days);
    write_console(options.json ? json_text(to_json(result).get(), JSON_INDENT(1)) + "\n"
                               : text_of(result));
    return 0;
  });
}

int run_explain(const Options& options) {
  return guarded(kDetectionProgram, [&] {
    Connection database = open_for_reading(options.database_path());
    const std::optional<Explanation> explanation =
        explain(database, settings_of(options), options.unique_key);
    if (!explanation) {
      write_console_error("No backup has the UNIQUE_KEY " + options.unique_key +
                          ". It is an anomaly's id without \"anomaly_\".\n");
      return 1;
    }
    write_console(json_text(to_json(*explanation).get(), JSON_INDENT(1)) + "\n");
    return 0;
  });
}

}  // namespace corvane::detect
