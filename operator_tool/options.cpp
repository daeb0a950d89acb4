#include "operator_tool/options.h"

#include <CLI/CLI.hpp>
#include <array>
#include <climits>
#include <filesystem>
#include <sstream>

#include "companions/alert/options.h"
#include "platform/host_product.h"
#include "platform/program_names.h"
#include "util/path.h"

namespace corvane::ctl {

namespace {

constexpr int kMostDays = 36500;

constexpr char kAbout[] =
    "The operator's tool of the anomaly detection: looks at what the service and its companions "
    "do and have found. It changes nothing.";
constexpr char kFooter[] =
    "\nExit status: 0 done, 1 not found, 2 wrong arguments, 3 no database, 4 database locked,\n"
    "5 database of another version, 6 database damaged, 7 no right to read it, 8 another failure.\n"
    "check: 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN.";

std::string install_directory() {
  std::array<char, PATH_MAX> buffer{};
  return getCVInstallDir(buffer.data(), buffer.size()) == 0 ? buffer.data() : "/usr/tessel/";
}

void add_global(CLI::App& app, Options& options) {
  app.add_flag("--json", options.json, "Print one JSON document, see docs/operator-tool.md");
  app.add_flag("--utc", options.utc, "Times in UTC instead of the local zone");
  app.add_flag("--no-color", options.no_colour, "No colour on a terminal; NO_COLOR does the same");
  app.add_option("--database", options.database, "The anomaly database, a file")->type_name("FILE");
  app.add_option("--config", options.config,
                 "The configuration file (default: the one beside the database)")
      ->check(CLI::ExistingFile.description(""))
      ->type_name("FILE");
  app.add_option("--logs", options.logs, "Directory of the programs' logs")->type_name("DIR");
}

void add_lists(CLI::App& app, Options& options) {
  CLI::App* status = app.add_subcommand("status", "How the service and its companions fare");
  status->callback([&] { options.command = Command::kStatus; });
  status->footer(
      "Durations and failures of gathers are what the last 4 MB of the service's log "
      "tell of the last 24 hours.");

  CLI::App* streams =
      app.add_subcommand("streams", "The streams of backups, and which still learn");
  streams->callback([&] { options.command = Command::kStreams; });
  streams->add_option("--client", options.client, "Only this client")->type_name("NAME");
  streams->add_option("--state", options.state, "Only these: learning, judged or dormant")
      ->check(CLI::IsMember({"learning", "judged", "dormant"}));

  CLI::App* anomalies = app.add_subcommand("anomalies", "The anomalies found, the newest first");
  anomalies->callback([&] { options.command = Command::kAnomalies; });
  anomalies->add_option("--client", options.client, "Only of this client")->type_name("NAME");
  anomalies->add_option("--severity", options.severity, "Only of this severity (1 to 3) or above")
      ->check(CLI::Range(1, 3));
  anomalies->add_option("--days", options.days, "Only of the last so many days")
      ->check(CLI::Range(1, kMostDays));
  // The former names, --open and --judged, stay for scripts.
  CLI::Option* not_reviewed = anomalies->add_flag_callback(
      "--not-reviewed,--open", [&] { options.is_reviewed = false; },
      "Only those that nobody has reviewed");
  anomalies
      ->add_flag_callback(
          "--reviewed,--judged", [&] { options.is_reviewed = true; },
          "Only those that somebody has reviewed")
      ->excludes(not_reviewed);
  CLI::Option* not_over = anomalies->add_flag_callback(
      "--not-over", [&] { options.is_over = false; }, "Only those whose incident is not over");
  anomalies
      ->add_flag_callback(
          "--over", [&] { options.is_over = true; }, "Only those whose incident is over")
      ->excludes(not_over);
}

void add_single(CLI::App& app, Options& options) {
  CLI::App* show = app.add_subcommand("show", "One anomaly: figures, cause, history");
  show->callback([&] { options.command = Command::kShow; });
  show->add_option("ID", options.id, "ANOMALY_UNIQUE_ID, or the backup's id")->required();

  CLI::App* explain = app.add_subcommand("explain", "How a backup is judged by what came before");
  explain->callback([&] { options.command = Command::kExplain; });
  explain->add_option("UNIQUE_KEY", options.id, "The backup's key in the database")->required();

  CLI::App* backtest =
      app.add_subcommand("backtest", "Judge the last days' backups again, in memory");
  backtest->callback([&] { options.command = Command::kBacktest; });
  backtest->add_option("DAYS", options.days, "How many days")
      ->required()
      ->check(CLI::Range(1, kMostDays));
}

void add_check(CLI::App& app, Options& options) {
  CLI::App* check = app.add_subcommand("check", "One line and an exit status for monitoring");
  check->callback([&] { options.command = Command::kCheck; });
  Thresholds& at = options.thresholds;
  const auto add = [&](const char* name, int& value, const char* words, int most) {
    CLI::Option* option = check->add_option(name, value, words);
    option->check(CLI::Range(0, most).description(""))->type_name("N");
    if (value >= 0) option->capture_default_str();
  };
  add("--gather-warning", at.gather_warning,
      "Minutes since the last gather (default: 3 gather intervals)", 1000000);
  add("--gather-critical", at.gather_critical,
      "Minutes since the last gather (default: 12 gather intervals)", 1000000);
  add("--alerts-warning", at.alerts_warning, "Minutes that a message has waited for a channel",
      1000000);
  add("--alerts-critical", at.alerts_critical, "Minutes that a message has waited for a channel",
      1000000);
  add("--disk-warning", at.disk_warning, "Percent of the database's disk that is free", 100);
  add("--disk-critical", at.disk_critical, "Percent of the database's disk that is free", 100);
}

void add_documents(CLI::App& app, Options& options) {
  CLI::App* metrics = app.add_subcommand("metrics", "The Prometheus text format");
  metrics->callback([&] { options.command = Command::kMetrics; });
  metrics
      ->add_option("--output", options.output,
                   "Replace this file at one stroke instead of printing")
      ->type_name("FILE");

  CLI::App* report = app.add_subcommand("report", "A page with charts, in one file");
  report->callback([&] { options.command = Command::kReport; });
  report->add_option("--html", options.output, "The file to write")->type_name("FILE")->required();
  report->add_option("--days", options.days, "The last so many days (default 30)")
      ->check(CLI::Range(1, kMostDays));
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

std::string Options::alert_database() const {
  const std::filesystem::path path(database);
  alert::Options of_alerts;
  of_alerts.database_location = path.has_parent_path() ? path.parent_path().string() : ".";
  of_alerts.database_file_name = path.filename().string();
  return of_alerts.own_file(".db");
}

std::string Options::log_file(const std::string& program) const {
  return Path::Combine(logs, program);
}

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
  try {
    app.parse(count, arguments);
    fill_in(options);
  } catch (const CLI::ParseError& error) {
    std::ostringstream out;
    if (app.exit(error, out, out) == 0) {
      parsed.help = out.str();
    } else {
      parsed.wrong = error.what();
    }
    // What commands and flags do comes only after all of them are found good.
    if (app.got_subcommand("check")) options.command = Command::kCheck;
    options.json = app.get_option("--json")->count() > 0;
  }
  return parsed;
}

}  // namespace corvane::ctl
