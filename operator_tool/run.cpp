#include "operator_tool/run.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>

#include "companions/common/error_text.h"
#include "operator_tool/commands.h"
#include "operator_tool/layout/check.h"
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
  throw Trouble(ExitStatus::kFailed,
                std::string("Cannot write to standard output: ") + std::strerror(errno) + ".");
}

std::string run_command(const Context& context) {
  switch (context.options.command) {
    case Command::kStatus:
      return run_status(context);
    case Command::kStreams:
      return run_streams(context);
    case Command::kAnomalies:
      return run_anomalies(context);
    case Command::kShow:
      return run_show(context);
    case Command::kExplain:
      return run_explain(context);
    case Command::kBacktest:
      return run_backtest(context);
    case Command::kMetrics:
      return run_metrics(context);
    case Command::kReport:
      return run_report(context);
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
      Database database(options.database);
      try {
        auto result = work(database);
        database.check_unchanged();
        return result;
      } catch (const ChangedMeanwhile&) {  // of another database than this one
        throw;
      } catch (const Trouble&) {
        database.check_unchanged();
        throw;
      } catch (const std::exception& error) {
        database.check_unchanged();
        throw trouble_of(options.database, error);
      }
    } catch (const ChangedMeanwhile& changed) {
      if (tries == 1)
        throw Trouble(ExitStatus::kLocked,
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
  } catch (const Trouble& trouble) {
    complain(trouble.what());
    return static_cast<int>(CheckStatus::kUnknown);
  }
  return static_cast<int>(result.status);
}

int run_check(const Options& options) {
  CheckResult result;
  try {
    result = with_database(options, [&](Database& database) {
      return judge(look(options, database), options.thresholds);
    });
  } catch (const std::exception& error) {
    result = unknown(reason_of(error));
  }
  return tell(result, options.json);
}

int run_parsed(const Parsed& parsed) {
  const Options& options = parsed.options;
  if (!parsed.help.empty()) {
    print(parsed.help);
    return static_cast<int>(ExitStatus::kDone);
  }
  if (!parsed.wrong.empty()) {
    if (options.command == Command::kCheck) return tell(unknown(parsed.wrong), options.json);
    throw Trouble(ExitStatus::kUsage, parsed.wrong + " (see --help)");
  }
  if (options.command == Command::kCheck) return run_check(options);
  const Terminal terminal = terminal_of_output(options.no_colour);
  const std::string text = with_database(options, [&](Database& database) {
    return run_command({options, terminal, database});
  });
  print(options.json ? text : shown(terminal, text));
  return static_cast<int>(ExitStatus::kDone);
}

}  // namespace

int run(int count, const char* const* arguments) {
  int status = static_cast<int>(ExitStatus::kFailed);
  std::string why;
  try {
    return run_parsed(parse_options(count, arguments));
  } catch (const Trouble& trouble) {
    status = static_cast<int>(trouble.status());
    why = trouble.what();
  } catch (const std::exception& error) {
    why = reason_of(error);
  }
  complain(why);
  return status;
}

}  // namespace corvane::ctl
