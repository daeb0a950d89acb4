#include <jansson.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "companions/common/json_text.h"
#include "operator_tool/commands.h"
#include "operator_tool/health_json.h"
#include "operator_tool/json.h"
#include "operator_tool/output_file.h"
#include "operator_tool/report.h"
#include "operator_tool/seconds.h"
#include "operator_tool/series.h"
#include "operator_tool/words.h"

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
    if (points[i].is_reported) {
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

// The survey is in the order of clients.
JsonPtr clients_of(const Survey& survey, const AllSeries& series) {
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

JsonPtr json_of(const FoundAnomaly& found) {
  const alert::Anomaly& anomaly = found.anomaly;
  JsonPtr object(json_object());
  put(object.get(), "client", anomaly.stream.client);
  put(object.get(), "policy", anomaly.stream.policy);
  put(object.get(), "schedule_name", anomaly.stream.schedule_name);
  put(object.get(), "severity", std::int64_t{anomaly.severity});
  put(object.get(), "cause_words", anomaly.cause_words.substr(0, kMostSummary));
  put(object.get(), "summary", anomaly.summary.substr(0, kMostSummary));
  put_known(object.get(), "time", anomaly.time);
  put_known(object.get(), "detected", anomaly.detected);
  put(object.get(), "state", name_of(found.opinion));
  JsonPtr features(json_array());
  for (const alert::Feature& feature : anomaly.features) {
    JsonPtr entry(json_object());
    put(entry.get(), "name", feature.name);
    put(entry.get(), "value", feature.value);
    if (feature.has_usual) {
      put(entry.get(), "usual", feature.usual);
      put(entry.get(), "usual_low", feature.low);
      put(entry.get(), "usual_high", feature.high);
    }
    append(features.get(), std::move(entry));
  }
  put(object.get(), "features", std::move(features));
  return object;
}

JsonPtr json_of(const Incident& incident) {
  JsonPtr object(json_object());
  put(object.get(), "name", incident.name);
  put(object.get(), "client", incident.client);
  put(object.get(), "severity", std::int64_t{incident.severity});
  put(object.get(), "cause", incident.cause);
  put(object.get(), "summary", incident.summary.substr(0, kMostSummary));
  put_known(object.get(), "first", incident.first);
  put_known(object.get(), "last", incident.last);
  put(object.get(), "records", incident.records);
  put(object.get(), "open", incident.is_open);
  return object;
}

JsonPtr learning_of(const Survey& survey) {
  JsonPtr array(json_array());
  for (const StreamSummary& stream : survey.streams) {
    if (stream.state != StreamState::kLearning) continue;
    JsonPtr object(json_object());
    put(object.get(), "client", stream.key.client);
    put(object.get(), "policy", stream.key.policy);
    put(object.get(), "schedule", stream.key.schedule_name);
    put(object.get(), "records", stream.records);
    append(array.get(), std::move(object));
  }
  return array;
}

// Open ones and those with a record since then.
JsonPtr incidents_since(const std::vector<Incident>& incidents, std::int64_t since) {
  JsonPtr array(json_array());
  for (const bool open : {true, false}) {
    for (const Incident& incident : incidents) {
      if (incident.is_open != open || (!open && incident.last < since)) continue;
      append(array.get(), json_of(incident));
    }
  }
  return array;
}

JsonPtr report_data(const Context& context) {
  const Options& options = context.options;
  Database& database = context.database;
  const Health health = look(options, database);
  const Survey found = survey(database, health.configured.detect, health.now);
  const int days = options.days > 0 ? options.days : kUsualDays;
  const std::int64_t since = health.now - days * kDay;
  const std::vector<FoundAnomaly> all = read_anomalies(database, {});
  const AllSeries series = read_series(database, found, since, kMostPoints);

  JsonPtr root = document("report");
  put_health(root.get(), health);
  put_survey(root.get(), found);
  put(root.get(), "utc", options.utc);
  put(root.get(), "days", std::int64_t{days});
  put(root.get(), "from", since);
  put(root.get(), "shortened", series.is_shortened);
  put(root.get(), "records_wanted",
      static_cast<std::int64_t>(health.configured.detect.min_observations));
  put(root.get(), "clients", clients_of(found, series));
  JsonPtr anomalies(json_array());
  std::int64_t left_out = 0;
  for (const FoundAnomaly& anomaly : all) {
    if (anomaly.anomaly.known_time() < since) continue;
    if (json_array_size(anomalies.get()) < kMostAnomalies) {
      append(anomalies.get(), json_of(anomaly));
    } else {
      ++left_out;
    }
  }
  put(root.get(), "anomalies", std::move(anomalies));
  put(root.get(), "anomalies_left_out", left_out);
  put(root.get(), "incidents", incidents_since(incidents_of(all, found), since));
  put(root.get(), "learning", learning_of(found));
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
  return pretty(root.get());
}

}  // namespace corvane::ctl
