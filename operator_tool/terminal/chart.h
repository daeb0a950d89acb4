// A small chart for the terminal.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "operator_tool/terminal/terminal.h"

namespace corvane::ctl {

struct Bar {
  double value = 0;  // negative: unknown, no bar
  bool is_marked = false;
};

// A column for each bar, as many of the last ones as fit, `height` lines high, with the highest
// value beside the uppermost line and 0 beside the last; below, a mark under what is marked. Empty
// when there is nothing to show.
std::string column_chart(const Terminal& terminal, std::vector<Bar> bars, std::size_t height,
                         const std::function<std::string(double)>& label_of);

}  // namespace corvane::ctl
