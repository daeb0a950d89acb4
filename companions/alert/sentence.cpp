#include "companions/alert/sentence.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "companions/alert/plain_text.h"

namespace corvane::alert {

namespace {

constexpr std::size_t kMostWords = 400;
constexpr char kDuration[] = "duration";

struct Cause {
  std::string_view id;
  std::string_view phrase;  // for a sentence
  std::string_view noun;    // for a list
};
constexpr std::array<Cause, 5> kCauses{
    {{"encryption", "looks like encryption", "encryption"},
     {"mass_deletion", "looks like a mass deletion", "mass deletion"},
     {"source_empty", "the source is nearly empty", "source nearly empty"},
     {"runaway_growth", "the source grows beyond measure", "growth beyond measure"},
     {"packed", "looks as if the files were packed into few", "files packed into few"}}};

const Cause* find_cause(std::string_view id) {
  const auto* found = std::find_if(kCauses.begin(), kCauses.end(),
                                   [&](const Cause& cause) { return cause.id == id; });
  return found == kCauses.end() ? nullptr : found;
}

constexpr char kRatio[] = "dedup_ratio";

// Files, kilobytes and seconds are whole.
std::string figure(const Feature& feature, double number) {
  return number_text(feature.name == kRatio ? number : std::round(number));
}

std::string amount(const Feature& feature) {
  const std::string number = figure(feature, feature.value);
  if (feature.name == "files") return number + (feature.value == 1 ? " file" : " files");
  if (feature.name == "image_size") return number + " KB in size";
  if (feature.name == "kb_transferred") return number + " KB transferred";
  if (feature.name == kRatio) return "deduplication ratio " + number;
  if (feature.name == kDuration) return "took " + number + " seconds";
  return plain_text(feature.name) + " " + number;
}

std::string range(const Feature& feature) {
  return figure(feature, feature.low) + " to " + figure(feature, feature.high);
}

// Where the usual figures vary a lot, "1,430 times the usual" of one of them tells nothing.
bool varies_a_lot(const Feature& feature) {
  return !(feature.usual > 0) || feature.high > 4 * feature.usual ||
         4 * feature.low < feature.usual;
}

// "10 % of the usual 1,000": by how much a figure differs.
std::string difference(const Feature& feature) {
  if (varies_a_lot(feature)) return ", usually " + range(feature);
  const double factor = feature.value / feature.usual;
  const std::string usual = figure(feature, feature.usual);
  if (factor >= 2) return ", " + number_text(factor) + " times the usual " + usual;
  return ", " + number_text(std::round(factor * 100)) + " % of the usual " + usual;
}

std::string difference_and_range(const Feature& feature) {
  return difference(feature) + (varies_a_lot(feature) ? "" : " (" + range(feature) + ")");
}

// The two that are off the farthest; the duration, which tells least, comes last and counts only
// where nothing else does.
std::vector<Feature> telling_features(const Anomaly& anomaly) {
  std::vector<Feature> telling;
  for (const Feature& feature : anomaly.features) {
    if (feature.has_usual && feature.deviation != 0) telling.push_back(feature);
  }
  const auto rank = [](const Feature& feature) {
    return feature.name == kDuration ? 0.0 : std::abs(feature.deviation);
  };
  std::stable_sort(telling.begin(), telling.end(), [&](const Feature& one, const Feature& other) {
    return rank(one) > rank(other);
  });
  if (telling.size() > 2) telling.resize(2);
  return telling;
}

std::string backup_words(const StreamKey& stream) {
  std::string words = "The ";
  if (!stream.schedule_name.empty()) words += plain_text(stream.schedule_name) + " ";
  words += "backup of client " + plain_text(stream.client);
  if (!stream.policy.empty()) words += " (policy " + plain_text(stream.policy) + ")";
  return words;
}

std::string cause_phrase(const Anomaly& anomaly) {
  if (anomaly.cause.empty()) return {};
  const Cause* cause = find_cause(anomaly.cause);
  return "; " + std::string(cause == nullptr ? "no known cause fits" : cause->phrase);
}

std::string first_line(const Anomaly& anomaly, const std::vector<Feature>& telling) {
  std::string line = backup_words(anomaly.stream);
  if (anomaly.time > 0) line += " of " + utc_text(anomaly.time);
  if (anomaly.slow_change) {
    return line + " differs from what is usual: " + in_words(*anomaly.slow_change) + ".\n";
  }
  if (!telling.empty()) {
    line += " differs from what is usual: ";
    for (const Feature& feature : telling) {
      if (&feature != &telling.front()) line += "; ";
      line += amount(feature) + difference_and_range(feature);
    }
    return line + ".\n";
  }
  line += " is unusual.";
  if (!anomaly.summary.empty()) return line + " " + plain_text(anomaly.summary, kMostWords) + "\n";
  return line + " The detection tells no more of it than the key " +
         plain_text(anomaly.detection_key) + ".\n";
}

}  // namespace

std::string_view cause_in_words(std::string_view id) {
  const Cause* cause = find_cause(id);
  return cause == nullptr ? "no known cause" : cause->noun;
}

std::string counted(std::int64_t number, const std::string& one, const std::string& many) {
  return number_text(static_cast<double>(number)) + " " + (number == 1 ? one : many);
}

Words words_for_anomaly(const Anomaly& anomaly, std::int64_t since, const std::string& master) {
  const std::vector<Feature> telling = telling_features(anomaly);
  Words words;
  words.subject = backup_words(anomaly.stream);
  if (anomaly.slow_change) {
    words.subject += ": " + in_words(*anomaly.slow_change);
  } else if (telling.empty()) {
    words.subject += " is unusual";
  } else {
    words.subject += ": " + amount(telling.front()) + difference(telling.front());
  }
  words.subject += cause_phrase(anomaly);

  words.body = first_line(anomaly, telling);
  if (!anomaly.cause_words.empty()) {
    words.body += "What it looks like: " + plain_text(anomaly.cause_words, kMostWords) + "\n";
  }
  words.body += "It has been so since " + utc_text(since) + ". ";
  words.body += anomaly.last_good_id.empty()
                    ? std::string("No earlier good backup is known.\n")
                    : "The last good backup is " + plain_text(anomaly.last_good_id) + " of " +
                          utc_text(anomaly.last_good_time) + ".\n";
  words.body += "If this is as it should be, give the anomaly " +
                plain_text(anomaly.incident_id, kMostWords) +
                " the feedback FALSE_POSITIVE in the web interface of " +
                (master.empty() ? std::string("the master server") : plain_text(master)) +
                "; the like of it will then be taken for normal.\n";
  return words;
}

Words words_for_end(const Ending& ending) {
  const std::string backup = backup_words(ending.stream);
  const std::string until = utc_text(ending.until);
  Words words;
  words.subject = "Back to normal since " + until + ": the" + backup.substr(3);
  words.body = backup + " is back to normal since " + until + ". It was unusual from " +
               utc_text(ending.since) + " on, in " +
               (ending.records == 1 ? std::string("one backup")
                                    : counted(ending.records, "backup", "backups")) +
               ".\n";
  if (ending.adopted) {
    words.body += "The change has lasted: what was unusual counts as the new normal now.\n";
  }
  return words;
}

}  // namespace corvane::alert
