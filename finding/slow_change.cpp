#include "finding/slow_change.h"

#include <array>
#include <cstdio>

namespace corvane {

namespace {

// One decimal, unless it is 0.
std::string percent(double share) {
  std::array<char, 32> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "%.1f", 100 * share);
  std::string text = buffer.data();
  if (text.ends_with(".0")) text.resize(text.size() - 2);
  return text + "%";
}

}  // namespace

std::string in_words(const SlowChange& change) {
  const std::string found = change.of_files ? " of the files had changed" : " of the data was new";
  const std::string runs = std::to_string(change.runs);
  return "in each of " + runs + " backups in a row, at least " + percent(change.share) + found +
         " (previous maximum for " + runs + " in a row: " + percent(change.share_before) + ")";
}

}  // namespace corvane
