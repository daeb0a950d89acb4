#include "operator_tool/terminal/table.h"

#include <algorithm>
#include <numeric>

namespace corvane::ctl {

namespace {

constexpr std::size_t kGap = 2;

// A column that is left out has no width.
std::size_t total(const std::vector<std::size_t>& widths) {
  const auto shown = std::ranges::count_if(widths, [](std::size_t width) { return width > 0; });
  const std::size_t sum = std::accumulate(widths.begin(), widths.end(), std::size_t{0});
  return shown == 0 ? 0 : sum + kGap * (static_cast<std::size_t>(shown) - 1);
}

std::size_t least_width(const Column& column, std::size_t natural) {
  if (column.least == 0) return natural;
  return std::min(natural, std::max(column.least, display_width(column.title)));
}

void leave_out(const std::vector<Column>& columns, std::size_t room,
               std::vector<std::size_t>& widths) {
  for (;;) {
    std::vector<std::size_t> least(widths.size());
    std::size_t worst = columns.size();
    for (std::size_t i = 0; i < columns.size(); ++i) {
      if (widths[i] == 0) continue;
      least[i] = least_width(columns[i], widths[i]);
      if (columns[i].dispensable == 0) continue;
      if (worst == columns.size() || columns[i].dispensable > columns[worst].dispensable) worst = i;
    }
    if (total(least) <= room || worst == columns.size()) return;
    widths[worst] = 0;
  }
}

void cut(const std::vector<Column>& columns, std::size_t room, std::vector<std::size_t>& widths) {
  std::vector<std::size_t> least(widths.size());
  for (std::size_t i = 0; i < widths.size(); ++i) least[i] = least_width(columns[i], widths[i]);
  while (total(widths) > room) {
    std::size_t widest = widths.size();
    for (std::size_t i = 0; i < widths.size(); ++i) {
      if (widths[i] <= least[i]) continue;
      if (widest == widths.size() || widths[i] > widths[widest]) widest = i;
    }
    if (widest == widths.size()) return;
    --widths[widest];
  }
}

}  // namespace

void Table::add(std::vector<Cell> row) {
  for (Cell& cell : row) cell.text = safe(cell.text);
  row.resize(columns_.size());
  rows_.push_back(std::move(row));
}

std::vector<std::size_t> Table::natural_widths() const {
  std::vector<std::size_t> widths(columns_.size());
  std::ranges::transform(columns_, widths.begin(), display_width, &Column::title);
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], display_width(row[i].text));
    }
  }
  return widths;
}

std::string Table::text(const Terminal& terminal) const {
  std::vector<std::size_t> widths = natural_widths();
  if (terminal.width > 0) {
    leave_out(columns_, terminal.width, widths);
    cut(columns_, terminal.width, widths);
  }
  std::string lines;
  const auto add_line = [&](const auto& cell_of) {
    std::string line;
    std::string blanks;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      if (widths[i] == 0) continue;
      const Cell& cell = cell_of(i);
      const std::string text = fitted(cell.text, widths[i]);
      const std::string full = padded(text, widths[i], columns_[i].right);
      const std::size_t end = full.find_last_not_of(' ') + 1;
      if (end > 0) {
        line += blanks + styled(terminal, cell.style, full.substr(0, end));
        blanks.clear();
      }
      blanks += full.substr(end) + std::string(kGap, ' ');
    }
    lines += line + '\n';
  };
  add_line([&](std::size_t i) { return Cell{columns_[i].title, Style::kBold}; });
  for (const auto& row : rows_) add_line([&](std::size_t i) -> const Cell& { return row[i]; });
  return lines;
}

}  // namespace corvane::ctl
