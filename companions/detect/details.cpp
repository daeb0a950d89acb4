#include "companions/detect/details.h"

#include <jansson.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "companions/common/json_text.h"
#include "companions/common/valid_utf8.h"
#include "platform/c_handles.h"

namespace corvane::detect {

namespace {

constexpr char kAnomalyPrefix[] = "anomaly_";
constexpr char kIncidentPrefix[] = "incident_";
constexpr int kSchemaVersion = 1;

struct FeatureName {
  const char* name;
  const char* unit;
  const char* words;
};
constexpr std::array<FeatureName, kFeatures> kNames{
    {{"files", "files", "files"},
     {"image_size", "KB", "KB in size"},
     {"kb_transferred", "KB", "KB transferred"},
     {"dedup_ratio", "ratio", "deduplication ratio"},
     {"duration", "seconds", "seconds"}}};

json_t* json_string_of(const std::string& text) {
  const std::string valid = valid_utf8(text);
  return json_stringn(valid.data(), valid.size());
}

// People read these: six significant digits.
json_t* json_amount(double number) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.6g", number);
  const double rounded = std::strtod(text.data(), nullptr);
  if (rounded == std::floor(rounded) && std::abs(rounded) < 1e15) {
    return json_integer(static_cast<json_int_t>(rounded));
  }
  return json_real(rounded);
}

// Counts and amounts as whole numbers, their thousands apart; the ratio with two decimals.
std::string number_in_words(std::size_t feature, double value) {
  std::array<char, 64> buffer{};
  if (feature == kRatio) {
    std::snprintf(buffer.data(), buffer.size(), "%.2f", value);
    return buffer.data();
  }
  std::snprintf(buffer.data(), buffer.size(), "%.0f", std::min(value, 1e15));
  std::string text = buffer.data();
  for (std::size_t at = text.size(); at > 3; at -= 3) text.insert(at - 3, 1, ',');
  return text;
}

json_t* stream_json(const StreamKey& key) {
  json_t* stream = json_object();
  json_object_set_new(stream, "client", json_string_of(key.client));
  json_object_set_new(stream, "policy", json_string_of(key.policy));
  json_object_set_new(stream, "policy_type", json_string_of(key.policy_type));
  json_object_set_new(stream, "schedule_type", json_string_of(key.schedule_type));
  json_object_set_new(stream, "schedule_name", json_string_of(key.schedule_name));
  json_object_set_new(stream, "application_type", json_string_of(key.app_type));
  json_object_set_new(stream, "destination", json_string_of(key.destination));
  return stream;
}

json_t* features_json(const Verdict& verdict) {
  json_t* features = json_array();
  for (std::size_t i = 0; i < kFeatures; ++i) {
    const FeatureView& view = verdict.features[i];
    if (!view.known) continue;
    json_t* feature = json_object();
    json_object_set_new(feature, "name", json_string(kNames[i].name));
    json_object_set_new(feature, "unit", json_string(kNames[i].unit));
    json_object_set_new(feature, "value", json_amount(view.value));
    if (view.used) {
      json_object_set_new(feature, "usual", json_amount(view.usual));
      json_object_set_new(feature, "usual_low", json_amount(view.low));
      json_object_set_new(feature, "usual_high", json_amount(view.high));
      if (view.usual > 0)
        json_object_set_new(feature, "factor", json_amount(view.value / view.usual));
      json_object_set_new(feature, "deviation", json_amount(view.deviation));
    }
    json_array_append_new(features, feature);
  }
  return features;
}

json_t* slow_change_json(const SlowChange& change) {
  json_t* object = json_object();
  json_object_set_new(object, "runs", json_integer(static_cast<json_int_t>(change.runs)));
  json_object_set_new(object, "measure",
                      json_string(kNames[change.of_files ? kFiles : kTransferred].name));
  json_object_set_new(object, "share", json_amount(change.share));
  json_object_set_new(object, "share_before", json_amount(change.share_before));
  return object;
}

json_t* causes_json(const std::vector<Cause>& causes) {
  json_t* array = json_array();
  for (const Cause& cause : causes) {
    json_t* entry = json_object();
    json_object_set_new(entry, "id", json_string(cause.id.c_str()));
    json_object_set_new(entry, "words", json_string(cause.words.c_str()));
    json_array_append_new(array, entry);
  }
  return array;
}

json_t* good_json(const LastGood& last_good) {
  if (last_good.backup_id.empty()) return json_null();
  json_t* good = json_object();
  json_object_set_new(good, "backup_id", json_string_of(last_good.backup_id));
  json_object_set_new(good, "time", json_integer(last_good.time));
  return good;
}

// The figure that is off the farthest, but for the duration, which tells least. Empty when none is
// known.
std::string farthest_in_words(const Verdict& verdict) {
  std::size_t worst = kFeatures;
  for (std::size_t i = 0; i < kFeatures; ++i) {
    if (!verdict.features[i].used || i == kDuration) continue;
    if (worst == kFeatures ||
        std::abs(verdict.features[i].deviation) > std::abs(verdict.features[worst].deviation)) {
      worst = i;
    }
  }
  if (worst == kFeatures) return {};
  const FeatureView& view = verdict.features[worst];
  return number_in_words(worst, view.value) + " " + kNames[worst].words + ", usually " +
         number_in_words(worst, view.low) + " to " + number_in_words(worst, view.high);
}

}  // namespace

std::string anomaly_id(const std::string& unique_key) { return kAnomalyPrefix + unique_key; }

std::string incident_id(const std::string& first_unique_key) {
  return kIncidentPrefix + first_unique_key;
}

std::string unique_key_of(const std::string& id) {
  const std::string prefix = kAnomalyPrefix;
  return id.starts_with(prefix) ? id.substr(prefix.size()) : std::string();
}

std::string details_of(const Backup& backup, const Verdict& verdict, const std::string& incident,
                       const LastGood& last_good) {
  const JsonPtr details(json_object());
  json_t* root = details.get();
  json_object_set_new(root, "schema", json_integer(kSchemaVersion));
  json_object_set_new(root, "summary", json_string_of(summary_of(backup, verdict)));
  json_object_set_new(root, "severity", json_integer(verdict.severity));
  json_object_set_new(root, "incident", json_string_of(incident_id(incident)));
  json_object_set_new(root, "stream", stream_json(backup.stream));
  json_object_set_new(root, "backup_id", json_string_of(backup.backup_id));
  json_object_set_new(root, "job_id", json_integer(backup.job_id));
  json_object_set_new(root, "time", json_integer(backup.time));
  json_object_set_new(root, "causes", causes_json(verdict.causes));
  if (verdict.slow_change)
    json_object_set_new(root, "slow_change", slow_change_json(*verdict.slow_change));
  json_object_set_new(root, "features", features_json(verdict));
  json_object_set_new(root, "judged_by",
                      json_string(verdict.by_other_stream ? "another stream" : "own history"));
  json_object_set_new(root, "observations",
                      json_integer(static_cast<json_int_t>(verdict.observations)));
  json_object_set_new(root, "eps", json_amount(verdict.eps));
  json_object_set_new(root, "last_good", good_json(last_good));
  return json_text(root);
}

std::string with_adoption(const std::string& details, const Backup& adopted_with) {
  const JsonPtr root(json_loads(details.c_str(), 0, nullptr));
  if (!json_is_object(root.get())) return details;
  json_t* adopted = json_object();
  json_object_set_new(adopted, "backup_id", json_string_of(adopted_with.backup_id));
  json_object_set_new(adopted, "time", json_integer(adopted_with.time));
  json_object_set_new(root.get(), "adopted", adopted);
  return json_text(root.get());
}

std::string summary_of(const Backup& backup, const Verdict& verdict) {
  std::string text = backup.stream.schedule_name + " backup of " + backup.stream.client;
  // Of a slow change each figure by itself may be a normal one.
  const std::string unusual =
      verdict.slow_change ? in_words(*verdict.slow_change) : farthest_in_words(verdict);
  if (!unusual.empty()) text += ": " + unusual;
  if (!verdict.causes.empty()) text += ". " + verdict.causes.front().words;
  return text;
}

const char* outcome_name(Outcome outcome) {
  switch (outcome) {
    case Outcome::kLearning:
      return "learning";
    case Outcome::kInconclusive:
      return "inconclusive";
    case Outcome::kNormal:
      return "normal";
    case Outcome::kAdopted:
      return "adopted";
    case Outcome::kAnomalous:
      return "anomalous";
  }
  return "";
}

std::string state_of(const Verdict& verdict, const Settings& settings) {
  std::string state = outcome_name(verdict.outcome);
  if (verdict.outcome == Outcome::kLearning) {
    state += " " + std::to_string(verdict.observations) + " of " +
             std::to_string(settings.min_observations);
  }
  return state;
}

}  // namespace corvane::detect
