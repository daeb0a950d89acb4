#include "finding/finding.h"

namespace corvane {

namespace {

// In a slow change each figure may be normal by itself.
std::string what_is_unusual(const Finding& finding) {
  if (finding.slow_change) return in_words(*finding.slow_change);
  const std::vector<Figure> figures = figures_by_deviation(finding.figures);
  if (figures.empty() || figures.front() == kDuration) return {};
  const FigureView& view = finding.figures.at(figures.front());
  return value_in_words(figures.front(), view) + ", usually " +
         words_for(figures.front(), view).range;
}

}  // namespace

std::string summary_of(const Finding& finding) {
  std::string text = finding.stream.schedule_name;
  text += (text.empty() ? "backup of " : " backup of ") + finding.stream.client;
  const std::string unusual = what_is_unusual(finding);
  if (!unusual.empty()) text += ": " + unusual;
  if (!finding.causes.empty()) text += ". " + finding.causes.front().words;
  return text;
}

}  // namespace corvane
