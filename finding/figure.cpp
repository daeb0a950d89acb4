#include "finding/figure.h"

#include <algorithm>
#include <cmath>

#include "finding/words.h"

namespace corvane {

namespace {

constexpr std::array<FigureNames, kFigures> kNames{{{"files", "files", "Files"},
                                                    {"image_size", "KB", "Size"},
                                                    {"kb_transferred", "KB", "Transferred"},
                                                    {"dedup_ratio", "ratio", "Deduplication ratio"},
                                                    {"duration", "seconds", "Duration"}}};
constexpr double kLongest = 1e12;  // seconds

}  // namespace

const FigureNames& names_of(Figure figure) { return kNames.at(figure); }

std::optional<Figure> figure_of(std::string_view id) {
  for (std::size_t i = 0; i < kFigures; ++i) {
    if (id == kNames.at(i).id) return Figure{i};
  }
  return std::nullopt;
}

std::string amount_text(Figure figure, double value) {
  if (std::isinf(value)) return "unlimited";
  switch (figure) {
    case kSize:
    case kTransferred:
      return size_text(value);
    case kDuration:
      return span_text(std::llround(std::clamp(value, 0.0, kLongest)));
    case kRatio:
      return number_text(value);
    case kFiles:
    case kFigures:
      break;
  }
  return number_text(std::round(value));
}

std::string amount_in_words(Figure figure, double value) {
  const std::string amount = amount_text(figure, value);
  switch (figure) {
    case kSize:
      return amount + " in size";
    case kTransferred:
      return amount + " transferred";
    case kRatio:
      return "deduplication ratio " + amount;
    case kDuration:
      return "took " + amount;
    case kFiles:
    case kFigures:
      break;
  }
  return amount + (amount == "1" ? " file" : " files");
}

std::string range_text(Figure figure, const FigureView& view) {
  const std::string low = amount_text(figure, view.low);
  return std::isinf(view.high) ? "at least " + low : low + " to " + amount_text(figure, view.high);
}

std::vector<Figure> figures_by_deviation(const FigureViews& figures) {
  std::vector<Figure> known;
  for (std::size_t i = 0; i < kFigures; ++i) {
    if (figures.at(i).has_usual) known.push_back(Figure{i});
  }
  std::ranges::stable_sort(known, std::ranges::greater{}, [&](Figure figure) {
    return figure == kDuration ? -1.0 : std::abs(figures.at(figure).deviation);
  });
  return known;
}

}  // namespace corvane
