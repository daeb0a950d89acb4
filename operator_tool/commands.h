// The commands of cvanomalyctl, one source file each.
#pragma once

#include <string>
#include <string_view>

#include "finding/figure.h"
#include "finding/finding.h"
#include "health/database.h"
#include "health/health.h"
#include "operator_tool/options.h"
#include "operator_tool/terminal/table.h"
#include "operator_tool/terminal/terminal.h"

namespace corvane::ctl {

// What every command is given. Each returns what to print, and throws QueryError and Trouble.
struct Context {
  const Options& options;
  const Terminal& terminal;
  health::Database& database;
};

// Text, and the exit status.
struct Printed {
  std::string text;
  int exit_status = 0;
};
Printed run_status(const Context& context);
std::string run_streams(const Context& context);
std::string run_anomalies(const Context& context);
std::string run_show(const Context& context);
std::string run_explain(const Context& context);
std::string run_backtest(const Context& context);
std::string run_metrics(const Context& context);
std::string run_report(const Context& context);
// Of heal and gather: what the ledger says once cvanomalyheal has ended.
std::string run_healing(const Context& context);

// Parts of several commands.
struct SeverityWords {
  const char* words;
  Style style;
};
SeverityWords severity_words(Severity severity);
// "Name          text", the text broken to fit.
std::string line(const Terminal& terminal, std::string_view name, std::string_view text,
                 Style style = Style::kPlain);
// The lines "Stream" and, empty when none is known, "Last good".
std::string stream_line(const Terminal& terminal, const Finding& finding);
std::string last_good_line(const Terminal& terminal, const Finding& finding, bool utc);
// What was healed, what is missing, and what cvanomalyheal did last.
std::string healing_text(const Terminal& terminal, bool utc, const health::LedgerHealth& ledger);
// A table of what was observed against what is usual; empty when nothing is known.
std::string figures_table(const Terminal& terminal, const FigureViews& figures);

}  // namespace corvane::ctl
