#include "coverage/commands.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "anomaly_database/anomaly_database.h"
#include "anomaly_database/gather_marks.h"
#include "companions/common/error_text.h"
#include "companions/common/program_lock.h"
#include "companions/common/stop_signals.h"
#include "config/configuration.h"
#include "config/service_values.h"
#include "config/setting_values.h"
#include "coverage/gather_again.h"
#include "coverage/healer.h"
#include "coverage/job_lister.h"
#include "coverage/programs.h"
#include "coverage/restarts.h"
#include "coverage/rules.h"
#include "finding/words.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/debug_log.h"
#include "platform/host_product.h"
#include "platform/own_processes.h"
#include "platform/program_names.h"
#include "service/child_supervision.h"
#include "service/host_role.h"
#include "util/path.h"

namespace corvane::coverage {

namespace {

using Clock = std::chrono::steady_clock;

// Of a gather, and of a list of jobs. Half a look: what is interrupted because the look is over did
// not have its time.
constexpr std::chrono::minutes kDeadline{2};
constexpr std::chrono::minutes kLookTakes{4};
constexpr std::chrono::minutes kLookEvery{5};  // the timer's interval

std::string service_log() {
  std::array<char, PATH_MAX> root{};
  if (getCVInstallDir(root.data(), root.size()) != 0) {
    throw std::runtime_error("the install directory is not known");
  }
  return std::string(root.data()) + "corvane/logs/" + kManagementProgram;
}

void require_lock(ProgramLock& lock) {
  if (!lock.take())
    throw std::runtime_error(
        "another cvanomalyheal is running: a look takes minutes, a gather by hand may take hours");
}

// The scratch directory, with what a look that died has left in it.
std::string made_scratch(const Options& options) {
  std::string directory = options.own_file("_Scratch");
  std::filesystem::remove_all(directory);
  if (mkdir(directory.c_str(), 0700) != 0) throw std::runtime_error("cannot create " + directory);
  return directory;
}

struct Scratch {
  explicit Scratch(const Options& options) : directory(made_scratch(options)) {}
  ~Scratch() {
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  const std::string directory;
};

Worker worker_for(const std::string& task, const std::string& result, const Scratch& scratch,
                  const std::function<bool()>& stop) {
  return {{"/proc/self/exe", "-database_location", scratch.directory, task},
          Path::Combine(scratch.directory, result),
          kDeadline,
          stop};
}

Surroundings surroundings_of(const Options& options, const Scratch& scratch,
                             const std::function<bool()>& stop) {
  const Worker gatherer = worker_for("-gather_again", kScratchLog, scratch, stop);
  const Worker lister = worker_for("-list_jobs", kScratchJobs, scratch, stop);
  Surroundings world;
  world.sights.database = options.database_path();
  world.sights.log = service_log();
  world.sights.now = [] { return static_cast<std::int64_t>(now()); };
  world.sights.runs_as_service = runs_as_service;
  world.scratch = Path::Combine(scratch.directory, kScratchDatabase);
  world.gather_again = [gatherer](TimeRange range) { return run_gather(gatherer, range); };
  world.list_ended = [lister](TimeRange range, const std::function<void(const EndedJob&)>& visit) {
    return list_jobs(lister, range, visit);
  };
  world.stop = stop;
  return world;
}

// 0 without a database.
std::int64_t stored_gather_time(const Options& options) {
  if (access(options.database_path().c_str(), F_OK) != 0) return 0;
  Connection database = open_for_reading(options.database_path());
  return last_gather(database);
}

// What goes wrong here must not keep missing backups from being gathered.
void look_after_programs(const Options& options, const StopSignals& signals, Configuration& config,
                         Ledger& ledger) {
  try {
    const Programs programs = programs_of(options, signals);
    look_after_service(
        ledger, programs, stored_gather_time(options),
        kMinute * gather_interval_minutes(value_of(config, setting::kGatherFrequency)));
    for (const char* companion : {kDetectionProgram, kAlertProgram}) {
      look_after_companion(ledger, programs, companion);
    }
  } catch (const std::exception& error) {
    logmsgf(kLogError, kHealProgram, "Cannot look after the programs: %s",
            reason_of(error).c_str());
  }
}

// What one look needs.
struct Look {
  Look(const Options& the_options, StopSignals& the_signals)
      : options(the_options), signals(the_signals) {}

  // Says why nothing is healed; empty: it is.
  std::string take(bool at_once);

  const Options& options;
  StopSignals& signals;
  Clock::time_point until = Clock::time_point::max();
  const Scratch scratch{options};
  Ledger ledger = open_ledger(options.own_file(".db"));
  Healer healer{ledger, surroundings_of(options, scratch, [this] {
                  return signals.arrived() || Clock::now() > until;
                })};
};

std::string Look::take(bool at_once) {
  until = Clock::now() + kLookTakes;
  Configuration config(options.config_path(), 1);
  const HealRules rules = rules_of(config, now());
  healer.read_log(rules);
  if (std::string why = why_off(config, options.config_path()); !why.empty()) return why;
  if (at_once) {
    healer.make_due();
    for (const char* companion : {kDetectionProgram, kAlertProgram}) {
      begin_anew(ledger, companion);
    }
  }
  look_after_programs(options, signals, config, ledger);
  healer.heal(rules);
  return {};
}

}  // namespace

int run_look(const Options& options) {
  ProgramLock lock(options.own_file(".lock"));
  if (options.at_once) {
    require_lock(lock);
  } else if (!lock.take()) {
    return 0;  // the look before is still at work
  }
  StopSignals signals;
  const std::string why = Look(options, signals).take(options.at_once);
  // Somebody waits for what comes of it.
  if (options.at_once && !why.empty()) throw std::runtime_error("nothing is healed: " + why);
  return 0;
}

int run_companion(const Options& options) {
  // Since it was asked for, somebody may have stopped the service or switched the companion off.
  if (own_processes(kManagementProgram).empty() ||
      !is_companion_wanted(options.config_path(), options.companion) ||
      !own_processes(options.companion).empty()) {
    return 0;
  }
  std::string command = detect_command_line();
  if (options.companion == kAlertProgram) command = alert_command_line(known_master());
  execlp("bash", "bash", "-c", command.c_str(), nullptr);
  throw std::system_error(errno, std::generic_category(), "bash");
}

int gather_by_hand(const Options& options) {
  ProgramLock lock(options.own_file(".lock"));
  require_lock(lock);
  StopSignals signals;
  Look look(options, signals);
  std::int64_t added = 0;
  for (TimeRange left = options.range;;) {
    Configuration config(options.config_path(), 1);
    if (!config.is_imported() && access(options.config_path().c_str(), F_OK) == 0) {
      throw std::runtime_error(why_off(config, options.config_path()));
    }
    const Clock::time_point next_look = Clock::now() + kLookEvery;
    look.until = Clock::time_point::max();
    const auto done =
        look.healer.gather(left, rules_of(config, now()), [&] { return Clock::now() > next_look; });
    added += done.added;
    if (done.is_whole) break;
    left.begin = done.next;
    // It may take hours, in which the timer's looks find the lock taken.
    look.take(false);
  }
  write_console(counted(added, "backup was", "backups were") + " missing and added.\n");
  return 0;
}

}  // namespace corvane::coverage
