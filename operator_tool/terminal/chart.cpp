#include "operator_tool/terminal/chart.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace corvane::ctl {

namespace {

constexpr std::size_t kUsualWidth = 80;
constexpr std::size_t kEighths = 8;
constexpr std::array kBlocks{" ",
                             "\xE2\x96\x81",
                             "\xE2\x96\x82",
                             "\xE2\x96\x83",
                             "\xE2\x96\x84",
                             "\xE2\x96\x85",
                             "\xE2\x96\x86",
                             "\xE2\x96\x87",
                             "\xE2\x96\x88"};
constexpr char kAxis[] = "\xE2\x94\xA4";

// How many eighths of a bar fall into one line; the last line is 0. A value above 0 always shows.
std::size_t eighths_of(double value, double highest, std::size_t line, std::size_t height) {
  if (!(value >= 0)) return 0;
  const double all = value / highest * static_cast<double>(height * kEighths);
  auto eighths = static_cast<std::size_t>(std::lround(all));
  if (value > 0) eighths = std::max<std::size_t>(eighths, 1);
  const std::size_t below = line * kEighths;
  return eighths <= below ? 0 : std::min(eighths - below, kEighths);
}

}  // namespace

std::string column_chart(const Terminal& terminal, std::vector<Bar> bars, std::size_t height,
                         const std::function<std::string(double)>& label_of) {
  double highest = 0;
  for (const Bar& bar : bars) highest = std::max(highest, bar.value);
  if (bars.empty() || highest <= 0) return {};
  const std::string top = label_of(highest);
  const std::size_t margin = display_width(top);
  const std::size_t width = terminal.width == 0 ? kUsualWidth : terminal.width;
  const std::size_t room = std::max(width, margin + 3) - margin - 2;
  if (bars.size() > room) {
    bars.erase(bars.begin(), bars.end() - static_cast<std::ptrdiff_t>(room));
  }
  std::string chart;
  for (std::size_t line = height; line-- > 0;) {
    const std::string label = line + 1 == height ? top : line == 0 ? "0" : "";
    chart += padded(label, margin, true) + " " + kAxis;
    std::string blanks;
    for (const Bar& bar : bars) {
      const std::size_t eighths = eighths_of(bar.value, highest, line, height);
      if (eighths == 0) {
        blanks += ' ';
        continue;
      }
      chart += blanks;
      blanks.clear();
      chart += styled(terminal, bar.is_marked ? Style::kBad : Style::kPlain, kBlocks.at(eighths));
    }
    chart += '\n';
  }
  std::string marks(margin + 2, ' ');
  bool any = false;
  for (const Bar& bar : bars) {
    marks += bar.is_marked ? '^' : ' ';
    any = any || bar.is_marked;
  }
  if (any) chart += marks.substr(0, marks.find_last_not_of(' ') + 1) + '\n';
  return chart;
}

}  // namespace corvane::ctl
