#include "companions/alert/sentence.h"
#include "operator_tool/anomaly_json.h"
#include "operator_tool/commands.h"
#include "operator_tool/json.h"
#include "operator_tool/seconds.h"
#include "operator_tool/words.h"
#include "platform/clock.h"

namespace corvane::ctl {

namespace {

AnomalyFilter filter_of(const Options& options) {
  AnomalyFilter filter;
  filter.client = options.client;
  filter.severity = options.severity;
  if (options.days > 0) filter.since = corvane::now() - options.days * kDay;
  if (options.open) filter.is_judged = false;
  if (options.judged) filter.is_judged = true;
  return filter;
}

Style style_of(Opinion opinion) {
  return opinion == Opinion::kFalsePositive ? Style::kFaint : Style::kPlain;
}

std::string text_of(const Context& context, const std::vector<FoundAnomaly>& anomalies) {
  if (anomalies.empty()) return "No anomalies.\n";
  Table table({{"Time"},
               {"Severity", false, 0, 3},
               {"Client", false, 10},
               {"Policy", false, 8, 5},
               {"Schedule", false, 6, 6},
               {"Looks like", false, 10},
               {"State", false, 0, 4},
               {"ID", false, 24, 7}});
  for (const FoundAnomaly& found : anomalies) {
    const alert::Anomaly& anomaly = found.anomaly;
    const SeverityWords severity = severity_words(anomaly.severity);
    table.add({{time_text(anomaly.known_time(), context.options.utc)},
               {severity.words, severity.style},
               {anomaly.stream.client},
               {anomaly.stream.policy},
               {anomaly.stream.schedule_name},
               {std::string(alert::cause_in_words(anomaly.cause))},
               {words_for(found.opinion), style_of(found.opinion)},
               {anomaly.id}});
  }
  return table.text(context.terminal) + "\n" +
         counted(static_cast<std::int64_t>(anomalies.size()), "anomaly", "anomalies") + "\n";
}

}  // namespace

std::string run_anomalies(const Context& context) {
  const std::vector<FoundAnomaly> anomalies =
      read_anomalies(context.database, filter_of(context.options));
  if (!context.options.json) return text_of(context, anomalies);
  const JsonPtr root = document("anomalies");
  JsonPtr array(json_array());
  for (const FoundAnomaly& found : anomalies) append(array.get(), json_of(found));
  put(root.get(), "anomalies", std::move(array));
  return pretty(root.get());
}

}  // namespace corvane::ctl
