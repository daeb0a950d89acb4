// The figures of a backup that are compared with what is usual, their units and words.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

enum Figure : std::size_t { kFiles, kSize, kTransferred, kRatio, kDuration, kFigures };

// What is known of one figure of one backup. In its own unit: files, KB of 1024 bytes, KB, a ratio,
// seconds.
struct FigureView {
  bool known = false;      // of this backup
  bool has_usual = false;  // the history knows it: the next four
  double value = 0;
  double low = 0;  // the usual range; the ratio of a backup of which nothing is new is infinite
  double usual = 0;
  double high = 0;
  double deviation = 0;  // in units of the history's spread
};
using FigureViews = std::array<FigureView, kFigures>;

struct FigureNames {
  const char* id;     // in JSON documents
  const char* unit;   // in JSON documents
  const char* label;  // of a row or a chart
};
const FigureNames& names_of(Figure figure);
std::optional<Figure> figure_of(std::string_view id);

// "16,278", "5.7 MB", "3.84", "12 min"; an infinite one is "unlimited".
std::string amount_text(Figure figure, double value);
// "16,278 files", "5.7 MB in size", "deduplication ratio 3.84", "took 12 min".
std::string amount_in_words(Figure figure, double value);
// "0 to 2,048", "at least 3.84".
std::string range_text(Figure figure, const FigureView& view);

// Those of which the usual is known, the largest deviation first; the duration, which tells least,
// comes last.
std::vector<Figure> figures_by_deviation(const FigureViews& figures);

}  // namespace corvane
