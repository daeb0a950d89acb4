#include <algorithm>
#include <cmath>

#include "anomaly_database/backups.h"
#include "anomaly_database/stream_history.h"
#include "finding/figure.h"
#include "operator_tool/ask/anomalies.h"
#include "operator_tool/ask/told.h"
#include "operator_tool/commands.h"
#include "operator_tool/layout/anomaly_json.h"
#include "operator_tool/layout/json.h"
#include "operator_tool/terminal/chart.h"
#include "operator_tool/terminal/words.h"

namespace corvane::ctl {

namespace {

constexpr std::size_t kMostPoints = 200;
constexpr std::size_t kChartHeight = 6;

// From the backup's own row: in the details, bytes that are not UTF-8 were replaced.
StreamKey stream_of(Connection& database, const Anomaly& anomaly) {
  const auto backup = find_backup(database, unique_key_of(anomaly.row.id));
  return backup ? backup->stream : anomaly.finding.stream;
}

bool is_charted(Figure figure) {
  return figure == kFiles || figure == kSize || figure == kTransferred;
}

double value_of(Figure figure, const Figures& figures) {
  if (figure == kFiles) return figures.files;
  return figure == kSize ? figures.size_kb : figures.transferred_kb;
}

// Of the figures that are charted, the one that deviates most.
Figure charted_of(const FigureViews& figures) {
  for (const Figure figure : figures_by_deviation(figures)) {
    if (is_charted(figure) && figures.at(figure).deviation != 0) return figure;
  }
  return kSize;
}

std::string chart_of(const Context& context, const Anomaly& anomaly,
                     const std::vector<HistoryPoint>& history) {
  const Figure charted = charted_of(anomaly.finding.figures);
  std::vector<Bar> bars;
  bars.reserve(history.size());
  for (const HistoryPoint& point : history) {
    bars.push_back({value_of(charted, point.figures), point.is_anomalous});
  }
  const std::string chart = column_chart(context.terminal, bars, kChartHeight,
                                         [&](double value) { return amount_text(charted, value); });
  if (chart.empty()) return {};
  return "\n" +
         wrapped(
             context.terminal,
             std::string(names_of(charted).label) + ", latest backups of the stream (^ anomalous)",
             0) +
         chart;
}

// In JSON documents. People read words_for().
const char* name_of(alert::DeliveryState state) {
  switch (state) {
    case alert::DeliveryState::kWaiting:
      return "waiting";
    case alert::DeliveryState::kFolded:
      return "in a summary";
    case alert::DeliveryState::kDelivered:
      return "taken";
    case alert::DeliveryState::kGivenUp:
      return "given up";
    case alert::DeliveryState::kReplaced:
      break;
  }
  return "replaced";
}

std::string delivery_words(const std::vector<alert::ToldMessage>& told, bool utc) {
  std::string words;
  for (const alert::ToldMessage& entry : told) {
    if (!words.empty()) words += "; ";
    words += entry.channel + " (" + name_of(entry.kind) + ") " + words_for(entry.state) + ", " +
             time_text(entry.created, utc);
    if (entry.state == alert::DeliveryState::kWaiting && !entry.reason.empty()) {
      words += ": " + entry.reason;
    }
  }
  return words;
}

std::string review_text(const Anomaly& anomaly, bool utc) {
  const Review review = anomaly.review();
  if (review == Review::kNotReviewed) return words_for(review);
  return std::string(words_for(review)) + ", since " + time_text(anomaly.row.feedback_time, utc);
}

std::string head_of(const Context& context, const Anomaly& anomaly,
                    const std::vector<alert::ToldMessage>& told) {
  const Terminal& terminal = context.terminal;
  const Finding& finding = anomaly.finding;
  const bool utc = context.options.utc;
  const SeverityWords severity = severity_words(finding.severity);
  const bool has_cause = !finding.causes.empty() && !finding.causes.front().words.empty();
  std::string text;
  text += line(terminal, "Anomaly", anomaly.row.id);
  text += line(terminal, "Severity", severity.words, severity.style);
  text += line(terminal, "Backup",
               finding.backup_id.empty()
                   ? "unknown"
                   : finding.backup_id + " from " + moment_text(finding.time, utc));
  text += stream_line(terminal, finding);
  text += line(terminal, "Summary", finding.summary);
  text += line(terminal, "Cause", has_cause ? finding.causes.front().words : "unknown");
  text += line(terminal, "Incident", anomaly.incident);
  text += last_good_line(terminal, finding, utc);
  text += line(terminal, "Detected", moment_text(anomaly.row.detection_time, utc));
  text += line(terminal, "Review", review_text(anomaly, utc));
  if (!told.empty()) text += line(terminal, "Deliveries", delivery_words(told, utc));
  return text;
}

std::string json_of(FoundAnomaly found, const std::vector<HistoryPoint>& history,
                    const std::vector<alert::ToldMessage>& told) {
  const JsonPtr root = document("show");
  put(root.get(), "anomaly", to_json(found.anomaly, std::move(found.details)));
  JsonPtr points(json_array());
  for (const HistoryPoint& point : history) {
    JsonPtr object(json_object());
    put(object.get(), "time", point.time);
    put(object.get(), "unique_key", point.unique_key);
    put(object.get(), "files", point.figures.files);
    put(object.get(), "image_size", point.figures.size_kb);
    put(object.get(), "kb_transferred", point.figures.transferred_kb);
    put(object.get(), "reported", point.is_anomalous);
    append(points.get(), std::move(object));
  }
  put(root.get(), "history", std::move(points));
  JsonPtr deliveries(json_array());
  for (const alert::ToldMessage& entry : told) {
    JsonPtr object(json_object());
    put(object.get(), "channel", entry.channel);
    put(object.get(), "kind", name_of(entry.kind));
    put(object.get(), "state", name_of(entry.state));
    put_known(object.get(), "time", entry.created);
    append(deliveries.get(), std::move(object));
  }
  put(root.get(), "told", std::move(deliveries));
  return json_for_terminal(root.get());
}

}  // namespace

std::string run_show(const Context& context) {
  Connection& database = context.database.connection();
  std::optional<FoundAnomaly> found = find_anomaly(database, context.options.id);
  if (!found) {
    throw health::Trouble(health::ExitStatus::kNotFound,
                          "No anomaly has the id, UNIQUE_KEY or backup id " + context.options.id +
                              ". \"cvanomalyctl anomalies\" lists the ids.");
  }
  const Anomaly& anomaly = found->anomaly;
  const std::vector<HistoryPoint> history =
      read_stream_history(database, stream_of(database, anomaly), anomaly.time(), kMostPoints);
  const std::vector<alert::ToldMessage> told = read_told(context.options, anomaly.incident);
  if (context.options.json) return json_of(std::move(*found), history, told);
  std::string text = head_of(context, anomaly, told);
  const std::string figures = figures_table(context.terminal, anomaly.finding.figures);
  if (!figures.empty()) text += "\n" + figures;
  return text + chart_of(context, anomaly, history);
}

}  // namespace corvane::ctl
