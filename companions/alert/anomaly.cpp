#include "companions/alert/anomaly.h"

#include <jansson.h>

#include <algorithm>

#include "companions/alert/plain_text.h"
#include "companions/common/json_text.h"
#include "companions/common/valid_utf8.h"
#include "platform/c_handles.h"

namespace corvane::alert {

namespace {

// What is over these bounds is no work of the detection.
constexpr std::size_t kMostName = 4096;
constexpr std::size_t kMostIncident = 1024;
constexpr std::size_t kMostFeatures = 32;
constexpr std::int64_t kMostRuns = 1000;
constexpr std::size_t kMostDetails = std::size_t{256} << 10;
constexpr std::size_t kMostForeign = 4096;

constexpr std::string_view kAnomalyPrefix = "anomaly_";
constexpr std::string_view kIncidentPrefix = "incident_";

std::string text_of(const json_t* object, const char* name) {
  const json_t* value = json_object_get(object, name);
  const std::string text = json_is_string(value) ? json_string_value(value) : "";
  return text.size() > kMostName ? std::string() : text;
}

std::int64_t integer_of(const json_t* object, const char* name) {
  return json_integer_value(json_object_get(object, name));
}

JsonPtr parsed(std::string_view text) {
  if (text.size() > kMostDetails) return nullptr;
  JsonPtr root(json_loadb(text.data(), text.size(), JSON_ALLOW_NUL, nullptr));
  return json_is_object(root.get()) ? std::move(root) : nullptr;
}

std::string dumped(const json_t* value) { return json_safe(json_text(value)); }

std::string unreadable(std::string_view text) {
  const std::string valid = valid_utf8(text.substr(0, kMostForeign));
  const JsonPtr root(json_object());
  json_object_set_new(root.get(), "unreadable", json_stringn(valid.data(), valid.size()));
  return dumped(root.get());
}

bool read_number(const json_t* object, const char* name, double& number) {
  const json_t* value = json_object_get(object, name);
  number = json_number_value(value);
  return json_is_number(value);
}

std::vector<Feature> read_features(const json_t* array) {
  std::vector<Feature> features;
  const std::size_t count = std::min(json_array_size(array), kMostFeatures);
  for (std::size_t i = 0; i < count; ++i) {
    const json_t* entry = json_array_get(array, i);
    Feature feature;
    feature.name = text_of(entry, "name");
    if (feature.name.empty() || !read_number(entry, "value", feature.value)) continue;
    feature.has_usual = read_number(entry, "usual", feature.usual) &&
                        read_number(entry, "usual_low", feature.low) &&
                        read_number(entry, "usual_high", feature.high) &&
                        read_number(entry, "deviation", feature.deviation);
    features.push_back(feature);
  }
  return features;
}

// What is none of the detection's leaves the features to tell of.
std::optional<SlowChange> read_slow_change(const json_t* object) {
  const std::string measure = text_of(object, "measure");
  if (measure != "files" && measure != "kb_transferred") return std::nullopt;
  SlowChange change;
  change.of_files = measure == "files";
  const std::int64_t runs = integer_of(object, "runs");
  if (runs < 2 || runs > kMostRuns) return std::nullopt;
  change.runs = static_cast<std::size_t>(runs);
  const bool known = read_number(object, "share", change.share) &&
                     read_number(object, "share_before", change.share_before);
  const bool possible =
      change.share_before >= 0 && change.share_before < change.share && change.share <= 1;
  if (!known || !possible) return std::nullopt;
  return change;
}

StreamKey read_stream(const json_t* object) {
  StreamKey stream;
  stream.client = text_of(object, "client");
  stream.policy = text_of(object, "policy");
  stream.policy_type = text_of(object, "policy_type");
  stream.schedule_type = text_of(object, "schedule_type");
  stream.schedule_name = text_of(object, "schedule_name");
  stream.app_type = text_of(object, "application_type");
  stream.destination = text_of(object, "destination");
  return stream;
}

void read_details(const json_t* root, Anomaly& anomaly) {
  const json_t* stream = json_object_get(root, "stream");
  anomaly.has_stream = !text_of(stream, "client").empty();
  if (anomaly.has_stream) anomaly.stream = read_stream(stream);
  const json_t* severity = json_object_get(root, "severity");
  if (json_is_integer(severity)) {
    anomaly.severity = static_cast<int>(std::clamp<json_int_t>(json_integer_value(severity), 1, 3));
  }
  const json_t* cause = json_array_get(json_object_get(root, "causes"), 0);
  anomaly.cause = text_of(cause, "id");
  anomaly.cause_words = text_of(cause, "words");
  anomaly.summary = text_of(root, "summary");
  anomaly.features = read_features(json_object_get(root, "features"));
  anomaly.slow_change = read_slow_change(json_object_get(root, "slow_change"));
  anomaly.time = integer_of(root, "time");
  const json_t* last_good = json_object_get(root, "last_good");
  anomaly.last_good_id = text_of(last_good, "backup_id");
  anomaly.last_good_time = integer_of(last_good, "time");

  const std::string incident = text_of(root, "incident");
  if (incident.empty() || incident.size() > kMostIncident) return;
  anomaly.incident = incident;
  if (incident.starts_with(kIncidentPrefix) && anomaly.id.starts_with(kAnomalyPrefix)) {
    anomaly.incident_id = kAnomalyPrefix;
    anomaly.incident_id += incident.substr(kIncidentPrefix.size());
  }
}

}  // namespace

Anomaly read_anomaly(const AnomalyRow& row) {
  Anomaly anomaly;
  anomaly.id = anomaly.incident = anomaly.incident_id = row.id;
  anomaly.stream.client = row.client.substr(0, kMostName);
  anomaly.detected = row.detection_time;
  anomaly.detection_key = row.detection_key;
  const JsonPtr root = parsed(row.details);
  if (root == nullptr) {
    anomaly.details = unreadable(row.details);
    return anomaly;
  }
  read_details(root.get(), anomaly);
  anomaly.details = dumped(root.get());
  return anomaly;
}

bool is_adopted(std::string_view details) {
  const JsonPtr root = parsed(details);
  return json_is_object(json_object_get(root.get(), "adopted"));
}

}  // namespace corvane::alert
