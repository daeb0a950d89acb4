#include <algorithm>
#include <cmath>

#include "companions/alert/message.h"
#include "companions/alert/plain_text.h"
#include "operator_tool/commands.h"
#include "operator_tool/words.h"

namespace corvane::ctl {

namespace {

constexpr std::size_t kLabelWidth = 14;

struct FeatureWords {
  const char* name;
  const char* words;
};
constexpr FeatureWords kFeatures[] = {{"files", "Files"},
                                      {"image_size", "Size"},
                                      {"kb_transferred", "Transferred"},
                                      {"dedup_ratio", "Deduplication ratio"},
                                      {"duration", "Duration"}};

std::string words_for(const std::string& feature) {
  for (const FeatureWords& known : kFeatures) {
    if (feature == known.name) return known.words;
  }
  return feature;
}

std::string amount_of(const std::string& feature, double value) {
  if (feature == "image_size" || feature == "kb_transferred") return size_text(value);
  if (feature == "duration") return span_text(static_cast<std::int64_t>(std::min(value, 1e12)));
  return alert::number_text(feature == "files" ? std::round(value) : value);
}

std::string label(const Terminal& terminal, std::string_view name) {
  return styled(terminal, Style::kBold, std::string(name)) +
         std::string(kLabelWidth - std::min(kLabelWidth - 1, name.size()), ' ');
}

}  // namespace

SeverityWords severity_words(int severity) {
  constexpr Style kStyles[] = {Style::kPlain, Style::kWarning, Style::kBad};
  const int known = std::min(std::max(severity, 1), 3);
  return {alert::severity_in_words(known), kStyles[known - 1]};
}

std::string line(const Terminal& terminal, std::string_view name, std::string_view text,
                 Style style) {
  std::string words = wrapped(terminal, safe(text), kLabelWidth);
  words.pop_back();
  return label(terminal, name) + styled(terminal, style, words) + '\n';
}

std::string stream_line(const Terminal& terminal, const alert::Anomaly& anomaly) {
  const StreamKey& stream = anomaly.stream;
  return line(terminal, "Stream",
              stream.client + ", policy " + stream.policy + ", schedule " + stream.schedule_name +
                  " (" + stream.schedule_type + ")");
}

std::string last_good_line(const Terminal& terminal, const alert::Anomaly& anomaly, bool utc) {
  if (anomaly.last_good_id.empty()) return {};
  return line(terminal, "Last good",
              anomaly.last_good_id + " of " + moment_text(anomaly.last_good_time, utc));
}

std::string figures_table(const Terminal& terminal, const std::vector<alert::Feature>& features) {
  if (features.empty()) return {};
  Table table({{"Figure"},
               {"Observed", true},
               {"Usual", true},
               {"Usual range", true, 0, 1},
               {"Spreads off", true}});
  for (const alert::Feature& feature : features) {
    const auto amount = [&](double value) { return amount_of(feature.name, value); };
    if (!feature.has_usual) {
      table.add({{words_for(feature.name)}, {amount(feature.value)}, {"-"}, {"-"}, {"-"}});
      continue;
    }
    const double off = std::abs(feature.deviation);
    const Style style = off >= 2.5 ? Style::kBad : Style::kPlain;
    table.add({{words_for(feature.name)},
               {amount(feature.value), style},
               {amount(feature.usual)},
               {amount(feature.low) + " to " + amount(feature.high)},
               {alert::number_text(std::round(feature.deviation * 10) / 10), style}});
  }
  return table.text(terminal);
}

}  // namespace corvane::ctl
