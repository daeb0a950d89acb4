#include "operator_tool/layout/explain_command.h"

#include <cmath>

#include "operator_tool/commands.h"
#include "operator_tool/layout/json.h"
#include "operator_tool/terminal/words.h"

namespace corvane::ctl {

namespace {

constexpr double kPercent = 100;

std::string anomaly_lines(const Terminal& terminal, const Finding& finding) {
  const SeverityWords severity = severity_words(finding.severity);
  std::string text = line(terminal, "Summary", finding.summary) +
                     line(terminal, "Severity", severity.words, severity.style);
  for (const Cause& cause : finding.causes) {
    text +=
        line(terminal, &cause == &finding.causes.front() ? "Cause" : "Other cause", cause.words);
  }
  return text;
}

}  // namespace

std::string text_of(const detect::Explanation& judged, const Terminal& terminal, bool utc) {
  const Finding& finding = judged.finding;
  const bool is_anomalous = judged.outcome == detect::Outcome::kAnomalous;
  std::string text;
  text += line(terminal, "Backup", finding.backup_id + " from " + moment_text(finding.time, utc));
  text += stream_line(terminal, finding);
  text += line(terminal, "Verdict", judged.verdict, is_anomalous ? Style::kBad : Style::kPlain);
  text += line(terminal, "Stream state", judged.stream);
  text += line(terminal, "Baseline",
               counted(static_cast<std::int64_t>(finding.observations), "backup", "backups") +
                   (finding.by_other_stream ? " of another stream, " : " of its own stream, ") +
                   std::to_string(std::lround(judged.noise_share * kPercent)) + "% noise");
  if (finding.slow_change) {
    text += line(terminal, "Slow change", "several backups in a row are anomalous together");
  }
  if (is_anomalous) text += anomaly_lines(terminal, finding);
  text += last_good_line(terminal, finding, utc);
  return text + "\n" + figures_table(terminal, finding.figures);
}

std::string run_explain(const Context& context) {
  const Options& options = context.options;
  const std::optional<detect::Explanation> judged = detect::explain(
      context.database.connection(), health::read_configuration(options.config).detect, options.id);
  if (!judged)
    throw health::Trouble(health::ExitStatus::kNotFound,
                          "No backup has the UNIQUE_KEY " + options.id +
                              ". It is an anomaly's id without \"anomaly_\".");
  if (!options.json) return text_of(*judged, context.terminal, options.utc);
  const JsonPtr root = document("explain");
  put(root.get(), "unique_key", options.id);
  put(root.get(), "judgement", to_json(*judged));
  return json_for_terminal(root.get());
}

}  // namespace corvane::ctl
