#include "operator_tool/run.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>

#include "companions/common/error_text.h"
#include "health/heartbeat.h"
#include "operator_tool/ask/anomalies.h"
#include "operator_tool/commands.h"
#include "operator_tool/healer_process.h"
#include "operator_tool/layout/metrics.h"
#include "operator_tool/layout/status_command.h"
#include "platform/console.h"
#include "platform/program_names.h"

namespace corvane::ctl {

namespace {

constexpr int kTries = 3;

// A list that a full disk cuts short must not look complete.
void print(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) {
    return;
  }
  throw health::Trouble(
      health::ExitStatus::kFailed,
      std::string("Cannot write to standard output: ") + std::strerror(errno) + ".");
}

Printed run_command(const Context& context) {
  switch (context.options.command) {
    case Command::kStatus:
      return run_status(context);
    case Command::kStreams:
      return {run_streams(context)};
    case Command::kAnomalies:
      return {run_anomalies(context)};
    case Command::kShow:
      return {run_show(context)};
    case Command::kExplain:
      return {run_explain(context)};
    case Command::kBacktest:
      return {run_backtest(context)};
    case Command::kMetrics:
      return {run_metrics(context)};
    case Command::kReport:
      return {run_report(context)};
    case Command::kHeal:
    case Command::kGather:
      return {run_healing(context)};
    case Command::kCheck:
      break;
  }
  return {};
}

// Tries again when a database that no program had open was opened meanwhile.
template <typename Work>
auto with_database(const Options& options, Work work) {
  for (int tries = kTries;; --tries) {
    try {
      health::Database database(options.database);
      try {
        auto result = work(database);
        database.check_unchanged();
        return result;
      } catch (const health::ChangedMeanwhile&) {  // of another database than this one
        throw;
      } catch (const health::Trouble&) {
        database.check_unchanged();
        throw;
      } catch (const std::exception& error) {
        database.check_unchanged();
        throw health::trouble_of(options.database, error);
      }
    } catch (const health::ChangedMeanwhile& changed) {
      if (tries == 1)
        throw health::Trouble(health::ExitStatus::kLocked,
                              options.database + ": " + changed.what() + "; try again.");
    }
  }
}

void complain(const std::string& why) {
  write_console_error(std::string(kOperatorProgram) + ": " + safe(why) + "\n");
}

// Monitoring must not take a missing line for OK.
int tell(const CheckResult& result, bool json) {
  try {
    print(text_of(result, json));
  } catch (const health::Trouble& trouble) {
    complain(trouble.what());
    return static_cast<int>(CheckStatus::kUnknown);
  }
  return static_cast<int>(result.status);
}

// What is wrong when the database cannot be read.
CheckResult result_of(const Options& options, const health::Trouble& trouble) {
  if (trouble.status() == health::ExitStatus::kDamaged) {
    return without_database("database_damaged", trouble.what());
  }
  if (trouble.status() == health::ExitStatus::kMissing &&
      health::is_database_missed(options.places())) {
    return without_database("database_missing", "the database is missing: " + options.database);
  }
  return unknown(trouble.what());
}

// The same, and what else is known to be wrong.
CheckResult checked_without_database(const Options& options, const health::Trouble& trouble) {
  CheckResult result = result_of(options, trouble);
  if (result.status == CheckStatus::kUnknown) return result;
  const std::vector<health::Problem> others =
      problems_of(health::look_without_database(options.places()), options.thresholds);
  result.problems.insert(result.problems.end(), others.begin(), others.end());
  return result;
}

CheckResult checked(const Options& options) {
  try {
    return with_database(options, [&](health::Database& database) {
      Status status;
      status.health = health::look(options.places(), database);
      // The history is only read when there may be incidents.
      if (!read_anomalies(database.connection()).empty()) {
        status.picture = take_picture(database.connection(), status.health.configured.detect.stream,
                                      status.health.now);
      }
      return status.verdict(options.thresholds);
    });
  } catch (const health::Trouble& trouble) {
    return checked_without_database(options, trouble);
  } catch (const std::exception& error) {
    return unknown(reason_of(error));
  }
}

void call_heartbeat(const Options& options, CheckStatus status) {
  std::string why;
  try {
    const bool is_healthy = status == CheckStatus::kOk || status == CheckStatus::kWarning;
    why = health::call_heartbeat(health::read_configuration(options.config), is_healthy);
  } catch (const std::exception& error) {
    why = reason_of(error);
  }
  if (!why.empty()) complain("HEARTBEAT_URL could not be called: " + why);
}

int run_check(const Options& options) {
  const CheckResult result = checked(options);
  if (options.heartbeat) call_heartbeat(options, result.status);
  return tell(result, options.json);
}

// Monitoring is told what is known, too. Returns the exit status.
int fail(const Options& options, const health::Trouble& trouble) {
  if (options.command == Command::kMetrics) {
    print(run_metrics_without_database(options, result_of(options, trouble)));
  }
  complain(trouble.what());
  return options.exit_status ? static_cast<int>(result_of(options, trouble).status)
                             : static_cast<int>(trouble.status());
}

int run_parsed(const Parsed& parsed) {
  const Options& options = parsed.options;
  if (!parsed.help.empty()) {
    print(parsed.help);
    return static_cast<int>(health::ExitStatus::kDone);
  }
  if (!parsed.wrong.empty()) {
    if (options.command == Command::kCheck) return tell(unknown(parsed.wrong), options.json);
    throw health::Trouble(health::ExitStatus::kUsage, parsed.wrong + " (see --help)");
  }
  if (options.command == Command::kCheck) return run_check(options);
  if (options.command == Command::kHeal || options.command == Command::kGather) {
    run_healer(healer_command(healer_path(), options));
  }
  const Terminal terminal = terminal_of_output(options.no_colour);
  Printed printed;
  try {
    printed = with_database(options, [&](health::Database& database) {
      return run_command({options, terminal, database});
    });
  } catch (const health::Trouble& trouble) {
    return fail(options, trouble);
  }
  print(options.json ? printed.text : shown(terminal, printed.text));
  return printed.exit_status;
}

}  // namespace

int run(int count, const char* const* arguments) {
  int status = static_cast<int>(health::ExitStatus::kFailed);
  std::string why;
  Parsed parsed;
  try {
    parsed = parse_options(count, arguments);
    return run_parsed(parsed);
  } catch (const health::Trouble& trouble) {
    status = static_cast<int>(trouble.status());
    why = trouble.what();
  } catch (const std::exception& error) {
    why = reason_of(error);
  }
  complain(why);
  return parsed.options.exit_status ? static_cast<int>(CheckStatus::kUnknown) : status;
}

}  // namespace corvane::ctl
