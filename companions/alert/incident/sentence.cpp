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

// Where the usual figures vary a lot, "1,430 times the usual" of one of them tells nothing.
bool varies_a_lot(const FigureView& view) {
  return !(view.usual > 0) || std::isinf(view.usual) || view.high > 4 * view.usual ||
         4 * view.low < view.usual;
}

// "10 % of the usual 1,000": by how much a figure differs.
std::string difference(const TellingFigure& telling) {
  const auto& [figure, view] = telling;
  if (varies_a_lot(view)) return ", usually " + range_text(figure, view);
  const double factor = view.value / view.usual;
  const std::string usual = amount_text(figure, view.usual);
  if (factor >= 2) return ", " + number_text(factor) + " times the usual " + usual;
  return ", " + number_text(std::round(factor * 100)) + " % of the usual " + usual;
}

std::string difference_and_range(const TellingFigure& telling) {
  return difference(telling) +
         (varies_a_lot(telling.view) ? "" : " (" + range_text(telling.figure, telling.view) + ")");
}

// The two that are off the farthest.
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
  if (finding.time > 0) line += " of " + utc_text(finding.time);
  if (finding.slow_change) {
    return line + " differs from what is usual: " + in_words(*finding.slow_change) + ".\n";
  }
  if (!telling.empty()) {
    line += " differs from what is usual: ";
    for (const TellingFigure& one : telling) {
      if (&one != &telling.front()) line += "; ";
      line += amount_in_words(one.figure, one.view.value) + difference_and_range(one);
    }
    return line + ".\n";
  }
  line += " is unusual.";
  if (!finding.summary.empty()) return line + " " + plain_text(finding.summary, kMostWords) + "\n";
  return line + " The detection tells no more of it than the key " +
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
    words.subject += ": " + amount_in_words(telling.front().figure, telling.front().view.value) +
                     difference(telling.front());
  }
  words.subject += cause_phrase(finding);
  words.body = first_line(anomaly, telling);
  if (!finding.causes.empty() && !finding.causes.front().words.empty()) {
    words.body +=
        "What it looks like: " + plain_text(finding.causes.front().words, kMostWords) + "\n";
  }
  words.body += "It has been so since " + utc_text(told.since) + ". ";
  words.body += finding.last_good.backup_id.empty()
                    ? std::string("No earlier good backup is known.\n")
                    : "The last good backup is " + plain_text(finding.last_good.backup_id) +
                          " of " + utc_text(finding.last_good.time) + ".\n";
  words.body += "If this is as it should be, give the anomaly " +
                plain_text(told.anomaly_id, kMostWords) +
                " the feedback FALSE_POSITIVE in the web interface of " +
                (told.master.empty() ? std::string("the master server") : plain_text(told.master)) +
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
