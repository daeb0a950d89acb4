// Tables that fit the terminal.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "operator_tool/terminal/terminal.h"

namespace corvane::ctl {

struct Column {
  std::string title;
  bool right = false;
  std::size_t least = 0;  // columns that it may be cut down to; 0: it is never cut
  int dispensable = 0;    // left out first where it is highest; 0: never left out
};

struct Cell {
  std::string text;  // made safe by the table
  Style style = Style::kPlain;
};

class Table {
 public:
  explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

  // As many cells as columns.
  void add(std::vector<Cell> row);

  // With the titles, each line ended. The widest columns are cut first.
  std::string text(const Terminal& terminal) const;

 private:
  std::vector<std::size_t> natural_widths() const;

  std::vector<Column> columns_;
  std::vector<std::vector<Cell>> rows_;
};

}  // namespace corvane::ctl
