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
  return text + " %";
}

}  // namespace

std::string in_words(const SlowChange& change) {
  const std::string found = change.of_files
                                ? "found " + percent(change.share) + " of the files changed or more"
                                : "stored " + percent(change.share) + " of the data anew or more";
  return "each of " + std::to_string(change.runs) + " runs in a row " + found +
         ", the most that so many accepted runs in a row did before was " +
         percent(change.share_before);
}

}  // namespace corvane
