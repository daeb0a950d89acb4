#include "companions/detect/replay.h"
#include "finding/cause.h"
#include "operator_tool/commands.h"
#include "operator_tool/layout/json.h"
#include "operator_tool/terminal/words.h"

namespace corvane::ctl {

namespace {

std::string text_of(const Context& context, const detect::Backtest& result) {
  std::string totals = detect::totals_of(result);
  if (result.findings.empty()) return totals;
  Table table({{"Time"},
               {"Severity", false, 0, 3},
               {"Client", false, 10},
               {"Policy", false, 8, 4},
               {"Schedule", false, 6, 5},
               {"Cause", false, 10},
               {"Key", false, 20, 6}});
  for (const auto& [key, finding] : result.findings) {
    const SeverityWords severity = severity_words(finding.severity);
    table.add({{time_text(finding.time, context.options.utc)},
               {severity.words, severity.style},
               {finding.stream.client},
               {finding.stream.policy},
               {finding.stream.schedule_name},
               {noun_for(finding.likeliest_cause())},
               {key}});
  }
  return table.text(context.terminal) + "\n" + totals;
}

}  // namespace

std::string run_backtest(const Context& context) {
  const Options& options = context.options;
  const detect::Backtest result =
      detect::backtest(context.database.connection(),
                       health::read_configuration(options.config).detect, options.days);
  if (!options.json) return text_of(context, result);
  const JsonPtr root = to_json(result);
  put(root.get(), "command", "backtest");
  put(root.get(), "days", std::int64_t{options.days});
  return json_for_terminal(root.get());
}

}  // namespace corvane::ctl
