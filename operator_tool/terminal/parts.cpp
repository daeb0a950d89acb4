#include <algorithm>
#include <cmath>

#include "finding/figure.h"
#include "operator_tool/commands.h"
#include "operator_tool/terminal/words.h"

namespace corvane::ctl {

namespace {

constexpr std::size_t kLabelWidth = 14;
constexpr double kFarOff = 2.5;  // spreads

std::string label(const Terminal& terminal, std::string_view name) {
  return styled(terminal, Style::kBold, std::string(name)) +
         std::string(kLabelWidth - std::min(kLabelWidth - 1, name.size()), ' ');
}

}  // namespace

SeverityWords severity_words(Severity severity) {
  const Style style = severity == Severity::kCritical ? Style::kBad
                      : severity == Severity::kMajor  ? Style::kWarning
                                                      : Style::kPlain;
  return {words_for(severity), style};
}

std::string line(const Terminal& terminal, std::string_view name, std::string_view text,
                 Style style) {
  std::string words = wrapped(terminal, safe(text), kLabelWidth);
  words.pop_back();
  return label(terminal, name) + styled(terminal, style, words) + '\n';
}

std::string stream_line(const Terminal& terminal, const Finding& finding) {
  const StreamKey& stream = finding.stream;
  return line(terminal, "Stream",
              stream.client + ", policy " + stream.policy + ", schedule " + stream.schedule_name +
                  " (" + stream.schedule_type + ")");
}

std::string last_good_line(const Terminal& terminal, const Finding& finding, bool utc) {
  const BackupReference& good = finding.last_good;
  if (good.backup_id.empty()) return {};
  return line(terminal, "Last good", good.backup_id + " from " + moment_text(good.time, utc));
}

std::string figures_table(const Terminal& terminal, const FigureViews& figures) {
  if (std::ranges::none_of(figures, &FigureView::known)) return {};
  Table table({{"Figure"},
               {"Observed", true},
               {"Usual", true},
               {"Usual range", true, 0, 1},
               {"Deviation", true}});
  for (std::size_t i = 0; i < kFigures; ++i) {
    const Figure figure{i};
    const FigureView& view = figures.at(i);
    if (!view.known) continue;
    const std::string label = names_of(figure).label;
    const FigureWords words = words_for(figure, view);
    if (!view.has_usual) {
      table.add({{label}, {words.value}, {"-"}, {"-"}, {"-"}});
      continue;
    }
    const double off = std::abs(view.deviation);
    const Style style = off >= kFarOff ? Style::kBad : Style::kPlain;
    table.add({{label},
               {words.value, style},
               {words.usual},
               {words.range},
               {number_text(std::round(view.deviation * 10) / 10), style}});
  }
  return table.text(terminal);
}

}  // namespace corvane::ctl
