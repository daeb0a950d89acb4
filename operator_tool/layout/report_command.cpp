#include <jansson.h>

#include <algorithm>
#include <cmath>

#include "anomaly_database/series.h"
#include "finding/cause.h"
#include "finding/figure.h"
#include "finding/words.h"
#include "operator_tool/ask/anomalies.h"
#include "operator_tool/ask/picture.h"
#include "operator_tool/commands.h"
#include "operator_tool/layout/check.h"
#include "operator_tool/layout/health_json.h"
#include "operator_tool/layout/json.h"
#include "operator_tool/report/output_file.h"
#include "operator_tool/report/report.h"
#include "operator_tool/terminal/words.h"
#include "util/json.h"

namespace corvane::ctl {

namespace {

constexpr int kUsualDays = 30;
constexpr std::size_t kMostPoints = 1'000'000;
constexpr std::size_t kMostAnomalies = 20'000;
constexpr std::size_t kMostSummary = 2000;

JsonPtr amount(double value) {
  if (!(value >= 0)) return JsonPtr(json_null());
  return JsonPtr(json_integer(std::llround(std::min(value, 1e15))));
}

JsonPtr json_of(const StreamSummary& stream, const std::vector<SeriesPoint>& points) {
  JsonPtr object(json_object());
  put(object.get(), "policy", stream.key.policy);
  put(object.get(), "schedule", stream.key.schedule_name);
  put(object.get(), "state", name_of(stream.state));
  JsonPtr time(json_array());
  JsonPtr files(json_array());
  JsonPtr size(json_array());
  JsonPtr moved(json_array());
  JsonPtr reported(json_array());
  for (std::size_t i = 0; i < points.size(); ++i) {
    append(time.get(), JsonPtr(json_integer(points[i].time)));
    append(files.get(), amount(points[i].files));
    append(size.get(), amount(points[i].size_kb));
    append(moved.get(), amount(points[i].transferred_kb));
    if (points[i].is_anomalous) {
      append(reported.get(), JsonPtr(json_integer(static_cast<json_int_t>(i))));
    }
  }
  put(object.get(), "time", std::move(time));
  put(object.get(), "files", std::move(files));
  put(object.get(), "size", std::move(size));
  put(object.get(), "moved", std::move(moved));
  put(object.get(), "reported", std::move(reported));
  return object;
}

// The survey is sorted by client.
JsonPtr clients_of(const StreamSurvey& survey, const AllSeries& series) {
  JsonPtr clients(json_array());
  json_t* streams = nullptr;
  for (std::size_t i = 0; i < survey.streams.size(); ++i) {
    const StreamSummary& stream = survey.streams[i];
    if (series.streams[i].empty()) continue;
    const json_t* latest = json_array_get(clients.get(), json_array_size(clients.get()) - 1);
    JsonPtr name(json_object());
    put(name.get(), "name", stream.key.client);
    if (latest == nullptr ||
        json_equal(json_object_get(latest, "name"), json_object_get(name.get(), "name")) == 0) {
      streams = json_array();
      json_object_set_new(name.get(), "streams", streams);
      append(clients.get(), std::move(name));
    }
    append(streams, json_of(stream, series.streams[i]));
  }
  return clients;
}

JsonPtr figure_json(Figure figure, const FigureView& view) {
  JsonPtr entry(json_object());
  put(entry.get(), "label", names_of(figure).label);
  const FigureWords words = words_for(figure, view);
  put(entry.get(), "value", words.value);
  if (view.has_usual) put(entry.get(), "usual", words.range);
  return entry;
}

JsonPtr json_of(const Anomaly& anomaly) {
  const Finding& finding = anomaly.finding;
  const std::string cause = finding.causes.empty() ? "" : finding.causes.front().words;
  JsonPtr object(json_object());
  put(object.get(), "client", finding.stream.client);
  put(object.get(), "policy", finding.stream.policy);
  put(object.get(), "schedule_name", finding.stream.schedule_name);
  put(object.get(), "severity", number_of(finding.severity));
  put(object.get(), "severity_words", words_for(finding.severity));
  put(object.get(), "cause_words", std::string_view(cause).substr(0, kMostSummary));
  put(object.get(), "summary", std::string_view(finding.summary).substr(0, kMostSummary));
  put_known(object.get(), "time", finding.time);
  put_known(object.get(), "detected", anomaly.row.detection_time);
  put(object.get(), "state", name_of(anomaly.review()));
  put(object.get(), "review", words_for(anomaly.review()));
  JsonPtr figures(json_array());
  for (std::size_t i = 0; i < kFigures; ++i) {
    const FigureView& view = finding.figures.at(i);
    if (view.known && view.has_usual) append(figures.get(), figure_json(Figure{i}, view));
  }
  put(object.get(), "figures", std::move(figures));
  return object;
}

JsonPtr json_of(const Incident& incident) {
  JsonPtr object(json_object());
  put(object.get(), "name", incident.name);
  put(object.get(), "client", incident.stream.client);
  put(object.get(), "severity", number_of(incident.severity));
  put(object.get(), "severity_words", words_for(incident.severity));
  put(object.get(), "cause", noun_for(incident.cause));
  put(object.get(), "summary", std::string_view(incident.summary).substr(0, kMostSummary));
  put_known(object.get(), "first", incident.first);
  put_known(object.get(), "last", incident.last);
  put(object.get(), "records", incident.records);
  put(object.get(), "over", incident.is_resolved());
  return object;
}

JsonPtr learning_of(const StreamSurvey& survey) {
  JsonPtr array(json_array());
  for (const StreamSummary& stream : survey.streams) {
    if (stream.state != StreamState::kLearning) continue;
    JsonPtr object(json_object());
    put(object.get(), "client", stream.key.client);
    put(object.get(), "policy", stream.key.policy);
    put(object.get(), "schedule", stream.key.schedule_name);
    put(object.get(), "records", static_cast<std::int64_t>(stream.that_matter));
    append(array.get(), std::move(object));
  }
  return array;
}

// The ongoing ones, then the resolved ones with a record since then.
JsonPtr incidents_since(const std::vector<Incident>& incidents, std::int64_t since) {
  JsonPtr array(json_array());
  for (const bool is_resolved : {false, true}) {
    for (const Incident& incident : incidents) {
      if (incident.is_resolved() != is_resolved || (is_resolved && incident.last < since)) continue;
      append(array.get(), json_of(incident));
    }
  }
  return array;
}

AllSeries series_of(Connection& database, const StreamSurvey& streams, std::int64_t since) {
  return read_series(
      database, streams.streams.size(),
      [&](const StreamKey& key) { return streams.place_of(key.text()); }, since, kMostPoints);
}

void put_anomalies(json_t* root, const std::vector<Anomaly>& all, std::int64_t since) {
  JsonPtr anomalies(json_array());
  std::int64_t left_out = 0;
  for (const Anomaly& anomaly : all) {
    if (anomaly.time() < since) continue;
    if (json_array_size(anomalies.get()) < kMostAnomalies) {
      append(anomalies.get(), json_of(anomaly));
    } else {
      ++left_out;
    }
  }
  put(root, "anomalies", std::move(anomalies));
  put(root, "anomalies_left_out", left_out);
}

JsonPtr report_data(const Context& context) {
  const Options& options = context.options;
  Connection& database = context.database.connection();
  const health::Health health = health::look(options.places(), context.database);
  const StreamSettings& settings = health.configured.detect.stream;
  const int days = options.days > 0 ? options.days : kUsualDays;
  const std::int64_t since = health.now - days * kDay;
  const Picture picture = take_picture(database, settings, health.now);
  const AllSeries series = series_of(database, picture.streams, since);

  JsonPtr root = document("report");
  CheckResult verdict = judge(health, options.thresholds);
  verdict.incidents = incidents_words(picture);
  put(root.get(), "verdict", verdict_of(verdict));
  put_health(root.get(), health);
  put_survey(root.get(), picture.streams);
  put(root.get(), "utc", options.utc);
  put(root.get(), "days", std::int64_t{days});
  put(root.get(), "from", since);
  put(root.get(), "shortened", series.is_shortened);
  put(root.get(), "records_wanted", static_cast<std::int64_t>(settings.min_observations));
  put(root.get(), "clients", clients_of(picture.streams, series));
  put_anomalies(root.get(), picture.anomalies, since);
  put(root.get(), "incidents", incidents_since(picture.incidents, since));
  put(root.get(), "learning", learning_of(picture.streams));
  return root;
}

}  // namespace

std::string run_report(const Context& context) {
  const Options& options = context.options;
  const JsonPtr data = report_data(context);
  const std::string page = report_page(json_text(data.get()));
  context.database.check_unchanged();
  replace_file(options.output, page);
  const std::size_t clients = json_array_size(json_object_get(data.get(), "clients"));
  const auto anomalies =
      static_cast<std::int64_t>(json_array_size(json_object_get(data.get(), "anomalies"))) +
      json_integer_value(json_object_get(data.get(), "anomalies_left_out"));
  if (!options.json) {
    return safe(options.output) + ": " +
           counted(static_cast<std::int64_t>(clients), "client", "clients") + ", " +
           counted(anomalies, "anomaly", "anomalies") + ", " +
           size_text(static_cast<double>(page.size()) / 1024) + "\n";
  }
  const JsonPtr root = document("report");
  put(root.get(), "file", options.output);
  put(root.get(), "bytes", static_cast<std::int64_t>(page.size()));
  put(root.get(), "clients", static_cast<std::int64_t>(clients));
  put(root.get(), "anomalies", std::int64_t{anomalies});
  return json_for_terminal(root.get());
}

}  // namespace corvane::ctl
