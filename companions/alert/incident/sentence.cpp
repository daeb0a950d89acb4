#include "companions/alert/incident/sentence.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

#include "finding/figure.h"
#include "finding/plain_text.h"
#include "finding/slow_change.h"
#include "finding/words.h"

namespace corvane::alert {

namespace {

constexpr std::size_t kMostWords = 400;

struct TellingFigure {
  Figure figure;
  FigureView view;
};

// Where the usual is no useful measure the whole range is given instead.
bool has_typical_value(const TellingFigure& telling) {
  const auto& [figure, view] = telling;
  if (view.usual <= 0 || is_unlimited(figure, view.usual) || is_unlimited(figure, view.value)) {
    return false;
  }
  return view.high <= 4 * view.usual && 4 * view.low >= view.usual;
}

// "10% of the usual ", "49.5 times the usual "; empty where that says nothing.
std::string factor_words(const FigureView& view) {
  const double factor = view.value / view.usual;
  if (factor >= 2) return number_text(std::round(10 * factor) / 10) + " times the usual ";
  const double percent = std::round(100 * factor);
  if (factor <= 0 || percent == 100) return {};
  return (percent < 1 ? "less than 1" : number_text(percent)) + "% of the usual ";
}

// By how much a figure differs: ", 10% of the usual 1,000".
std::string difference(const TellingFigure& telling) {
  const FigureWords words = words_for(telling.figure, telling.view);
  if (!has_typical_value(telling)) return ", usually " + words.range;
  const std::string factor = factor_words(telling.view);
  return ", " + (factor.empty() ? "usually " + words.range : factor + words.usual);
}

std::string difference_and_range(const TellingFigure& telling) {
  std::string text = difference(telling);
  const std::string range = words_for(telling.figure, telling.view).range;
  if (!text.ends_with(range)) text += " (" + range + ")";
  return text;
}

// The two that deviate most.
std::vector<TellingFigure> telling_figures(const FigureViews& figures) {
  std::vector<TellingFigure> telling;
  for (const Figure figure : figures_by_deviation(figures)) {
    const FigureView& view = figures.at(figure);
    if (view.deviation != 0 && telling.size() < 2) telling.push_back({figure, view});
  }
  return telling;
}

std::string backup_words(const StreamKey& stream) {
  std::string words = "The ";
  if (!stream.schedule_name.empty()) words += plain_text(stream.schedule_name) + " ";
  words += "backup of client " + plain_text(stream.client);
  if (!stream.policy.empty()) words += " (policy " + plain_text(stream.policy) + ")";
  return words;
}

std::string cause_phrase(const Finding& finding) {
  const std::optional<CauseKind> cause = finding.likeliest_cause();
  return cause ? std::string("; ") + phrase_for(*cause) : std::string();
}

std::string first_line(const Anomaly& anomaly, const std::vector<TellingFigure>& telling) {
  const Finding& finding = anomaly.finding;
  std::string line = backup_words(finding.stream);
  if (finding.time > 0) line += " from " + utc_text(finding.time);
  line += " is unusual";
  if (finding.slow_change) return line + ": " + in_words(*finding.slow_change) + ".\n";
  if (!telling.empty()) {
    for (const TellingFigure& one : telling) {
      line += &one == &telling.front() ? ": " : "; ";
      line += value_in_words(one.figure, one.view) + difference_and_range(one);
    }
    return line + ".\n";
  }
  if (!finding.summary.empty()) return line + ". " + plain_text(finding.summary, kMostWords) + "\n";
  return line + ". No details are available; the detection key is " +
         plain_text(anomaly.row.detection_key) + ".\n";
}

}  // namespace

Words words_for_anomaly(const Anomaly& anomaly, const Told& told) {
  const Finding& finding = anomaly.finding;
  const std::vector<TellingFigure> telling = telling_figures(finding.figures);
  Words words;
  words.subject = backup_words(finding.stream);
  if (finding.slow_change) {
    words.subject += ": " + in_words(*finding.slow_change);
  } else if (telling.empty()) {
    words.subject += " is unusual";
  } else {
    words.subject += ": " + value_in_words(telling.front().figure, telling.front().view) +
                     difference(telling.front());
  }
  words.subject += cause_phrase(finding);
  words.body = first_line(anomaly, telling);
  if (!finding.causes.empty() && !finding.causes.front().words.empty()) {
    words.body += "Likely cause: " + plain_text(finding.causes.front().words, kMostWords) + "\n";
  }
  words.body += "Unusual since " + utc_text(told.since) + ". ";
  words.body += finding.last_good.backup_id.empty()
                    ? std::string("No earlier good backup is known.\n")
                    : "The last good backup is " + plain_text(finding.last_good.backup_id) +
                          " from " + utc_text(finding.last_good.time) + ".\n";
  words.body += "If this backup is as expected, mark anomaly " +
                plain_text(told.anomaly_id, kMostWords) +
                " as FALSE_POSITIVE in the web interface of " +
                (told.master.empty() ? std::string("the master server") : plain_text(told.master)) +
                ". Similar backups are then treated as normal.\n";
  return words;
}

Words words_for_end(const Ending& ending) {
  const std::string backup = backup_words(ending.stream);
  const std::string until = utc_text(ending.until);
  Words words;
  words.subject = "Back to normal since " + until + ": the" + backup.substr(3);
  words.body = backup + " has been back to normal since " + until + ". It had been unusual since " +
               utc_text(ending.since) + " (" + counted(ending.records, "backup", "backups") +
               ").\n";
  if (ending.adopted) {
    words.body += "The change has lasted and is now part of the baseline.\n";
  }
  return words;
}

}  // namespace corvane::alert
