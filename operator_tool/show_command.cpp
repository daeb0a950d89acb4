#include <algorithm>
#include <cmath>

#include "companions/alert/plain_text.h"
#include "companions/detect/details.h"
#include "companions/detect/store.h"
#include "operator_tool/anomaly_json.h"
#include "operator_tool/chart.h"
#include "operator_tool/commands.h"
#include "operator_tool/history.h"
#include "operator_tool/json.h"
#include "operator_tool/told.h"
#include "operator_tool/words.h"

namespace corvane::ctl {

namespace {

constexpr std::size_t kMostPoints = 200;
constexpr std::size_t kChartHeight = 6;

// The stream as the rows have it: names in the details have lost what is no UTF-8.
StreamKey stream_of(const Database& database, const FoundAnomaly& found) {
  const std::string key = detect::unique_key_of(found.anomaly.id);
  detect::Store store(database.uri(), true);
  if (const auto backup = store.find_backup(key)) return backup->stream;
  return found.anomaly.stream;
}

struct Charted {
  const char* feature;
  const char* words;
  double detect::Figures::*figure;
};
constexpr Charted kCharted[] = {
    {"image_size", "Size", &detect::Figures::size_kb},
    {"files", "Files", &detect::Figures::files},
    {"kb_transferred", "Transferred", &detect::Figures::transferred_kb}};

// What is off the most.
const Charted& charted_of(const alert::Anomaly& anomaly) {
  const Charted* chosen = &kCharted[0];
  double most = 0;
  for (const alert::Feature& feature : anomaly.features) {
    for (const Charted& candidate : kCharted) {
      if (feature.name != candidate.feature || !feature.has_usual) continue;
      if (std::abs(feature.deviation) <= most) continue;
      most = std::abs(feature.deviation);
      chosen = &candidate;
    }
  }
  return *chosen;
}

std::string chart_of(const Context& context, const FoundAnomaly& found,
                     const std::vector<HistoryPoint>& history) {
  const Charted& charted = charted_of(found.anomaly);
  std::vector<Bar> bars;
  bars.reserve(history.size());
  for (const HistoryPoint& point : history) {
    bars.push_back({point.figures.*charted.figure, point.is_reported});
  }
  const bool is_files = charted.figure == &detect::Figures::files;
  const std::string chart = column_chart(context.terminal, bars, kChartHeight, [&](double value) {
    return is_files ? alert::number_text(value) : size_text(value);
  });
  if (chart.empty()) return {};
  return "\n" +
         wrapped(context.terminal,
                 std::string(charted.words) + " of the stream's last backups, reported ones marked",
                 0) +
         chart;
}

std::string told_words(const std::vector<Told>& told, bool utc) {
  std::string words;
  for (const Told& entry : told) {
    if (!words.empty()) words += "; ";
    words +=
        entry.channel + " (" + entry.kind + ") " + entry.state + ", " + time_text(entry.time, utc);
    if (entry.state == "waiting" && !entry.reason.empty()) words += ": " + entry.reason;
  }
  return words;
}

std::string opinion_text(const FoundAnomaly& found, bool utc) {
  if (found.opinion == Opinion::kOpen) return "nobody has judged it";
  return std::string(words_for(found.opinion)) + ", since " + time_text(found.judged_at, utc);
}

std::string head_of(const Context& context, const FoundAnomaly& found,
                    const std::vector<Told>& told) {
  const Terminal& terminal = context.terminal;
  const alert::Anomaly& anomaly = found.anomaly;
  const bool utc = context.options.utc;
  const SeverityWords severity = severity_words(anomaly.severity);
  std::string text;
  text += line(terminal, "Anomaly", anomaly.id);
  text += line(terminal, "Severity", severity.words, severity.style);
  text += line(terminal, "Backup",
               (found.backup_id.empty() ? "unknown" : found.backup_id) + " of " +
                   moment_text(anomaly.known_time(), utc));
  text += stream_line(terminal, anomaly);
  text += line(terminal, "Summary", anomaly.summary);
  text += line(terminal, "Cause", anomaly.cause_words.empty() ? "not known" : anomaly.cause_words);
  text += line(terminal, "Incident", anomaly.incident);
  text += last_good_line(terminal, anomaly, utc);
  text += line(terminal, "Detected", moment_text(anomaly.detected, utc));
  text += line(terminal, "Feedback", opinion_text(found, utc));
  if (!told.empty()) text += line(terminal, "Told", told_words(told, utc));
  return text;
}

std::string json_text(const FoundAnomaly& found, const std::vector<HistoryPoint>& history,
                      const std::vector<Told>& told) {
  const JsonPtr root = document("show");
  put(root.get(), "anomaly", json_of(found));
  JsonPtr points(json_array());
  for (const HistoryPoint& point : history) {
    JsonPtr object(json_object());
    put(object.get(), "time", point.time);
    put(object.get(), "unique_key", point.unique_key);
    put(object.get(), "files", point.figures.files);
    put(object.get(), "image_size", point.figures.size_kb);
    put(object.get(), "kb_transferred", point.figures.transferred_kb);
    put(object.get(), "reported", point.is_reported);
    append(points.get(), std::move(object));
  }
  put(root.get(), "history", std::move(points));
  JsonPtr deliveries(json_array());
  for (const Told& entry : told) {
    JsonPtr object(json_object());
    put(object.get(), "channel", entry.channel);
    put(object.get(), "kind", entry.kind);
    put(object.get(), "state", entry.state);
    put_known(object.get(), "time", entry.time);
    append(deliveries.get(), std::move(object));
  }
  put(root.get(), "told", std::move(deliveries));
  return pretty(root.get());
}

}  // namespace

std::string run_show(const Context& context) {
  const std::optional<FoundAnomaly> found = find_anomaly(context.database, context.options.id);
  if (!found) {
    throw Trouble(ExitStatus::kNotFound,
                  "No anomaly has the id, and none is of the backup, " + context.options.id + ".");
  }
  const std::vector<HistoryPoint> history =
      read_history(context.database, stream_of(context.database, *found),
                   found->anomaly.known_time(), kMostPoints);
  const std::vector<Told> told = read_told(context.options, found->anomaly.incident);
  if (context.options.json) return json_text(*found, history, told);
  std::string text = head_of(context, *found, told);
  const std::string figures = figures_table(context.terminal, found->anomaly.features);
  if (!figures.empty()) text += "\n" + figures;
  return text + chart_of(context, *found, history);
}

}  // namespace corvane::ctl
