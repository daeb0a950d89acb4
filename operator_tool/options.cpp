#include "operator_tool/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <climits>
#include <filesystem>
#include <sstream>

#include "operator_tool/terminal/time_argument.h"
#include "platform/host_product.h"
#include "platform/program_names.h"

namespace corvane::ctl {

namespace {

constexpr int kMostDays = 36500;
constexpr int kMostMinutes = 1000000;

constexpr char kAbout[] =
    "Shows the status of backup anomaly detection and the anomalies that it found. Only "
    "heal and gather change anything.";
constexpr char kFooter[] =
    "\nExit status: 0 success, 1 not found, 2 wrong arguments, 3 no database, 4 database locked,\n"
    "5 database from another version, 6 database damaged, 7 permission denied, 8 other error.\n"
    "check, status --exit-code: 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN.";

// A flag, and its former name, which scripts may still use and help does not show.
struct Flag {
  const char* name;
  const char* former;
  const char* words;
};

std::string install_directory() {
  std::array<char, PATH_MAX> buffer{};
  return getCVInstallDir(buffer.data(), buffer.size()) == 0 ? buffer.data() : "/usr/tessel/";
}

void add_global(CLI::App& app, Options& options) {
  app.add_flag("--json", options.json, "Print one JSON document (operator-tool.md describes it)");
  app.add_flag("--utc", options.utc, "Show times in UTC instead of local time");
  app.add_flag("--no-color", options.no_colour,
               "Use no colour on a terminal; NO_COLOR does the same");
  app.add_option("--database", options.database,
                 "The anomaly database (default: CV_Anomaly.db of the installed service)")
      ->type_name("FILE");
  app.add_option("--config", options.config,
                 "The configuration file (default: anomaly_config.conf beside the database)")
      ->check(CLI::ExistingFile.description(""))
      ->type_name("FILE");
  app.add_option("--logs", options.logs,
                 "The directory of the log files (default: that of the installed service)")
      ->type_name("DIR");
}

CLI::Option* add_days(CLI::App& command, Options& options, const char* words,
                      const char* name = "--days") {
  return command.add_option(name, options.days, words)
      ->check(CLI::Range(1, kMostDays).description(""))
      ->type_name("N");
}

// Two flags of which at most one may be given.
void add_opposites(CLI::App& command, std::optional<bool>& value, const Flag& no, const Flag& yes) {
  const auto add = [&](const char* name, bool meaning, const char* words) {
    const auto choose = [&value, meaning, name, no] {
      // Whatever their order on the command line, "no" comes first.
      if (meaning && value == false) throw CLI::ExcludesError(name, no.name);
      value = meaning;
    };
    return command.add_flag_callback(name, choose, words);
  };
  add(no.name, false, no.words);
  add(no.former, false, no.words)->group("");
  add(yes.name, true, yes.words);
  add(yes.former, true, yes.words)->group("");
}

void add_lists(CLI::App& app, Options& options) {
  CLI::App* status = app.add_subcommand("status", "Status of the service and its companions");
  status->callback([&] { options.command = Command::kStatus; });
  status->add_flag("--exit-code", options.exit_status,
                   "Exit with 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN, as check does");

  CLI::App* streams =
      app.add_subcommand("streams", "Streams of backups, and which of them are still learning");
  streams->callback([&] { options.command = Command::kStreams; });
  streams->add_option("--client", options.client, "Only this client")->type_name("NAME");
  streams
      ->add_option("--state", options.state,
                   "Only streams in this state: learning, judged or dormant")
      ->check(CLI::IsMember({"learning", "judged", "dormant"}).description(""))
      ->type_name("STATE");

  CLI::App* anomalies = app.add_subcommand("anomalies", "Anomalies, newest first");
  anomalies->callback([&] { options.command = Command::kAnomalies; });
  anomalies->add_option("--client", options.client, "Only this client")->type_name("NAME");
  anomalies
      ->add_option("--severity", options.severity,
                   "Only this severity and above: 1 warning, 2 major, 3 critical")
      ->check(CLI::Range(1, 3).description(""))
      ->type_name("N");
  add_days(*anomalies, options, "Only the last N days");
  add_opposites(*anomalies, options.is_reviewed,
                {"--not-reviewed", "--open", "Only anomalies without feedback"},
                {"--reviewed", "--judged", "Only anomalies with feedback"});
  add_opposites(*anomalies, options.is_resolved,
                {"--ongoing", "--not-over", "Only anomalies of ongoing incidents"},
                {"--resolved", "--over", "Only anomalies of resolved incidents"});
}

void add_single(CLI::App& app, Options& options) {
  CLI::App* show = app.add_subcommand("show", "One anomaly: figures, cause, history of its stream");
  show->callback([&] { options.command = Command::kShow; });
  show->add_option("ID", options.id, "ANOMALY_UNIQUE_ID, or UNIQUE_KEY or id of the backup")
      ->required()
      ->type_name("");

  CLI::App* explain =
      app.add_subcommand("explain", "How a backup is judged against the backups before it");
  explain->callback([&] { options.command = Command::kExplain; });
  explain
      ->add_option("UNIQUE_KEY", options.id,
                   "UNIQUE_KEY of the backup: an anomaly's id without anomaly_")
      ->required()
      ->type_name("");

  CLI::App* backtest =
      app.add_subcommand("backtest", "Judge the backups of the last DAYS days again, in memory");
  backtest->callback([&] { options.command = Command::kBacktest; });
  add_days(*backtest, options, "Number of days", "DAYS")->required()->type_name("");
}

void add_check(CLI::App& app, Options& options) {
  CLI::App* check = app.add_subcommand("check", "One line and an exit status for monitoring");
  check->callback([&] { options.command = Command::kCheck; });
  health::Thresholds& at = options.thresholds;
  const auto add = [&](const char* name, int& value, const char* words, int most) {
    CLI::Option* option = check->add_option(name, value, words);
    option->check(CLI::Range(0, most).description(""))->type_name("N");
    if (value >= 0) option->capture_default_str();
  };
  check->add_flag("--heartbeat", options.heartbeat,
                  "Call HEARTBEAT_URL of the configuration, with /fail added unless the status is "
                  "OK or WARNING");
  add("--gather-warning", at.gather_warning,
      "WARNING N minutes after the last gather (default: 3 gather intervals)", kMostMinutes);
  add("--gather-critical", at.gather_critical,
      "CRITICAL N minutes after the last gather (default: 12 gather intervals)", kMostMinutes);
  add("--alerts-warning", at.alerts_warning,
      "WARNING when a message has been pending for N minutes", kMostMinutes);
  add("--alerts-critical", at.alerts_critical,
      "CRITICAL when a message has been pending for N minutes", kMostMinutes);
  add("--disk-warning", at.disk_warning, "WARNING at N% or less free on the database's disk", 100);
  add("--disk-critical", at.disk_critical, "CRITICAL at N% or less free on the database's disk",
      100);
}

void add_documents(CLI::App& app, Options& options) {
  CLI::App* metrics = app.add_subcommand("metrics", "Metrics in the Prometheus text format");
  metrics->callback([&] { options.command = Command::kMetrics; });
  metrics
      ->add_option("--output", options.output, "Replace this file atomically instead of printing")
      ->type_name("FILE");

  CLI::App* report = app.add_subcommand("report", "Report with charts, as one HTML file");
  report->callback([&] { options.command = Command::kReport; });
  report->add_option("--html", options.output, "The file to write")->type_name("FILE")->required();
  add_days(*report, options, "The last N days (default: 30)");
}

// What is typed for `gather`; its meaning depends on --utc, which may come later.
struct TypedRange {
  std::string from;
  std::string to;
};

void add_healing(CLI::App& app, Options& options, TypedRange& range) {
  CLI::App* heal =
      app.add_subcommand("heal", "Take a look now: gather missed backups, start dead companions");
  heal->callback([&] { options.command = Command::kHeal; });

  CLI::App* gather = app.add_subcommand("gather", "Gather the missing backups of a range of time");
  gather->callback([&] { options.command = Command::kGather; });
  const auto add = [&](const char* name, std::string& value, const char* words) {
    gather->add_option(name, value, words)->required()->type_name("TIME");
  };
  add("--from", range.from, "Backups that ended then or later, for example '2026-11-20 08:00'");
  add("--to", range.to, "Backups that ended then or earlier; a date alone means 00:00");
}

// What is wrong with the range, if anything is.
std::string read_range(const TypedRange& range, Options& options) {
  if (options.command != Command::kGather) return {};
  const auto read = [&](const char* name, const std::string& text, std::int64_t& time) {
    const std::optional<std::int64_t> seconds = read_time(text, options.utc);
    time = seconds.value_or(0);
    return seconds ? ""
                   : std::string(name) + ": '" + text + "' is not a time like 2026-11-20 08:00";
  };
  std::string wrong = read("--from", range.from, options.from);
  if (wrong.empty()) wrong = read("--to", range.to, options.to);
  if (wrong.empty() && options.to < options.from) wrong = "--to is before --from";
  return wrong;
}

void fill_in(Options& options) {
  const std::string root = install_directory();
  if (options.database.empty())
    options.database = root + "var/global/anomaly_detection/CV_Anomaly.db";
  if (options.config.empty()) {
    const std::filesystem::path directory = std::filesystem::path(options.database).parent_path();
    options.config = (directory / "anomaly_config.conf").string();
  }
  if (options.logs.empty()) options.logs = root + "corvane/logs";
}

}  // namespace

health::Places Options::places() const { return health::places_of(database, config, logs); }

Parsed parse_options(int count, const char* const* arguments) {
  Parsed parsed;
  Options& options = parsed.options;
  CLI::App app(kAbout, kOperatorProgram);
  app.footer(kFooter);
  app.require_subcommand(1);
  app.fallthrough();
  app.get_formatter()->column_width(26);
  add_global(app, options);
  add_lists(app, options);
  add_single(app, options);
  add_check(app, options);
  add_documents(app, options);
  TypedRange range;
  add_healing(app, options, range);
  try {
    app.parse(count, arguments);
    fill_in(options);
    parsed.wrong = read_range(range, options);
  } catch (const CLI::ParseError& error) {
    std::ostringstream out;
    if (app.exit(error, out, out) == 0) {
      parsed.help = out.str();
    } else {
      parsed.wrong = error.what();
    }
    // What commands and flags do comes only after all of them are found good.
    if (app.got_subcommand("check")) options.command = Command::kCheck;
    options.exit_status = app.got_subcommand("status") &&
                          app.get_subcommand("status")->get_option("--exit-code")->count() > 0;
    options.json = app.get_option("--json")->count() > 0;
  }
  return parsed;
}

}  // namespace corvane::ctl
