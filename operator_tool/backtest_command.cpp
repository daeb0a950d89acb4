#include "companions/alert/sentence.h"
#include "companions/common/json_text.h"
#include "companions/detect/backtest.h"
#include "companions/detect/details.h"
#include "operator_tool/commands.h"
#include "operator_tool/json.h"
#include "operator_tool/words.h"

namespace corvane::ctl {

namespace {

std::string text_of(const Context& context, const json_t* result) {
  const json_t* anomalies = json_object_get(result, "anomalies");
  const std::size_t count = json_array_size(anomalies);
  std::string text;
  if (count > 0) {
    Table table({{"Time"},
                 {"Severity", false, 0, 3},
                 {"Client", false, 10},
                 {"Policy", false, 8, 4},
                 {"Schedule", false, 6, 5},
                 {"Looks like", false, 10},
                 {"Key", false, 20, 6}});
    for (std::size_t i = 0; i < count; ++i) {
      const json_t* entry = json_array_get(anomalies, i);
      const std::string key = text_member(entry, "unique_key");
      const alert::Anomaly view =
          alert::read_anomaly({detect::anomaly_id(key), json_text(entry), "", "", 0});
      const SeverityWords severity = severity_words(view.severity);
      table.add({{time_text(view.time, context.options.utc)},
                 {severity.words, severity.style},
                 {view.stream.client},
                 {view.stream.policy},
                 {view.stream.schedule_name},
                 {std::string(alert::cause_in_words(view.cause))},
                 {key}});
    }
    text = table.text(context.terminal) + "\n";
  }
  const auto judged = json_integer_value(json_object_get(result, "judged"));
  const auto learning = json_integer_value(json_object_get(result, "learning"));
  return text + counted(judged, "backup", "backups") + " judged again, " + std::to_string(count) +
         " would have been reported, " + std::to_string(learning) +
         " of streams that were still learning\n";
}

}  // namespace

std::string run_backtest(const Context& context) {
  const Options& options = context.options;
  const detect::Settings settings = read_configuration(options.config).detect;
  JsonPtr result(json_loads(
      detect::backtest(context.database.uri(), settings, options.days, true).c_str(), 0, nullptr));
  if (result == nullptr) throw Trouble(ExitStatus::kFailed, "The backtest gave no result.");
  if (!options.json) return text_of(context, result.get());
  put(result.get(), "command", "backtest");
  put(result.get(), "days", std::int64_t{options.days});
  return pretty(result.get());
}

}  // namespace corvane::ctl
