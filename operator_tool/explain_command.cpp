#include <cmath>

#include "companions/common/json_text.h"
#include "companions/detect/backtest.h"
#include "companions/detect/details.h"
#include "operator_tool/commands.h"
#include "operator_tool/json.h"
#include "operator_tool/words.h"

namespace corvane::ctl {

namespace {

constexpr double kPercent = 100;

Style style_of(const std::string& state) {
  return state == "anomalous" ? Style::kBad : Style::kPlain;
}

std::string text_of(const Context& context, const json_t* judged, const std::string& key) {
  const Terminal& terminal = context.terminal;
  const std::string details = json_text(judged);
  const alert::Anomaly view = alert::read_anomaly({detect::anomaly_id(key), details, "", "", 0});
  const bool utc = context.options.utc;
  const std::string state = text_member(judged, "state");
  std::string text;
  text += line(terminal, "Backup",
               text_member(judged, "backup_id") + " of " + moment_text(view.time, utc));
  text += stream_line(terminal, view);
  text += line(terminal, "State", state, style_of(state));
  const auto records = json_integer_value(json_object_get(judged, "observations"));
  const auto noise = json_real_value(json_object_get(judged, "history_noise")) * kPercent;
  text += line(terminal, "Judged by",
               text_member(judged, "judged_by") + ", " + counted(records, "record", "records") +
                   ", " + std::to_string(std::lround(noise)) + " percent of them noise");
  if (json_is_true(json_object_get(judged, "sustained"))) {
    text += line(terminal, "Sustained", "several runs in a row that together are too much");
  }
  if (state == "anomalous") {
    text += line(terminal, "Summary", view.summary);
    text += line(terminal, "Severity", severity_words(view.severity).words,
                 severity_words(view.severity).style);
    const json_t* causes = json_object_get(judged, "causes");
    for (std::size_t i = 0; i < json_array_size(causes); ++i) {
      text +=
          line(terminal, i == 0 ? "Cause" : "or", text_member(json_array_get(causes, i), "words"));
    }
  }
  text += last_good_line(terminal, view, utc);
  return text + "\n" + figures_table(terminal, view.features);
}

}  // namespace

std::string run_explain(const Context& context) {
  const Options& options = context.options;
  const detect::Settings settings = read_configuration(options.config).detect;
  const std::string judged = detect::explain(context.database.uri(), settings, options.id);
  JsonPtr parsed(json_loads(judged.c_str(), 0, nullptr));
  if (parsed == nullptr) {
    throw Trouble(ExitStatus::kNotFound, "No backup has the key " + options.id + ".");
  }
  if (!options.json) return text_of(context, parsed.get(), options.id);
  const JsonPtr root = document("explain");
  put(root.get(), "unique_key", options.id);
  put(root.get(), "judgement", std::move(parsed));
  return pretty(root.get());
}

}  // namespace corvane::ctl
