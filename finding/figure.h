// The figures of a backup, with their units and wording.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

enum Figure : std::size_t { kFiles, kSize, kTransferred, kRatio, kDuration, kFigures };

// One figure of one backup. In its own unit: files, KB of 1024 bytes, KB, a ratio, seconds.
struct FigureView {
  bool known = false;      // of this backup
  bool has_usual = false;  // the next four are known
  double value = 0;
  double low = 0;  // the usual range; a ratio is infinite where nothing new was stored
  double usual = 0;
  double high = 0;
  double deviation = 0;  // in spreads
};
using FigureViews = std::array<FigureView, kFigures>;

struct FigureNames {
  const char* id;     // in JSON documents
  const char* unit;   // in JSON documents
  const char* label;  // of a row or a chart
};
const FigureNames& names_of(Figure figure);
std::optional<Figure> figure_of(std::string_view id);

// "16,278", "5.7 MB", "3.84", "12 min"; "unlimited" for an infinite ratio.
std::string amount_text(Figure figure, double value);
// True for an infinite value, and for a ratio so large that it stands for an infinite one.
bool is_unlimited(Figure figure, double value);

// One figure in words. All three are in the same unit: that of the largest of them.
struct FigureWords {
  std::string value;
  std::string usual;  // as the next one: empty without a usual
  std::string range;  // "0 to 1.4 MB", "at least 3.84", "7" when both ends read alike
};
FigureWords words_for(Figure figure, const FigureView& view);

// "16,278 files", "5.7 MB in size", "deduplication ratio 3.84", "took 12 min".
std::string value_in_words(Figure figure, const FigureView& view);

// Those of which the usual is known, the largest deviation first. The duration, which tells least,
// comes last.
std::vector<Figure> figures_by_deviation(const FigureViews& figures);

}  // namespace corvane
