#include "finding/figure.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "finding/words.h"

namespace corvane {

namespace {

constexpr std::array<FigureNames, kFigures> kNames{{{"files", "files", "Files"},
                                                    {"image_size", "KB", "Size"},
                                                    {"kb_transferred", "KB", "Transferred"},
                                                    {"dedup_ratio", "ratio", "Deduplication ratio"},
                                                    {"duration", "seconds", "Duration"}}};
constexpr double kLongest = 1e12;        // seconds
constexpr double kUnlimitedRatio = 1e6;  // former versions stored it in place of infinity
constexpr double kLeastShown = 0.005;

// What the values of one figure are written in; a plain number without a name.
struct Unit {
  double size = 1;
  const char* name = "";
  // "3 h 20 min": how many of the smaller unit make one of this. 0: only this unit, "5.7 MB".
  std::int64_t parts = 0;
  const char* part_name = "";
};

Unit unit_of_size(double largest) {
  Unit unit{.name = kSizeUnits.front()};
  for (std::size_t i = 1; i < kSizeUnits.size() && largest >= 1024 * unit.size; ++i) {
    unit = {.size = 1024 * unit.size, .name = kSizeUnits.at(i)};
  }
  return unit;
}

Unit unit_of_span(double largest) {
  if (largest < 2 * kMinute) return {.size = 1, .name = "s"};
  if (largest < 2 * kHour) return {.size = kMinute, .name = "min"};
  if (largest < 2 * kDay) return {kHour, "h", kHour / kMinute, "min"};
  return {kDay, "d", kDay / kHour, "h"};
}

Unit unit_of(Figure figure, const FigureView& view) {
  double largest = view.value;
  if (view.has_usual) largest = std::max({largest, view.low, view.usual, view.high});
  if (figure == kSize || figure == kTransferred) return unit_of_size(largest);
  return figure == kDuration ? unit_of_span(largest) : Unit{};
}

std::string short_number(double number) {
  if (number > 0 && number < kLeastShown) return "less than 0.01";
  const int decimals = number >= 10 ? 0 : number >= 1 ? 1 : 2;
  const double scale = std::pow(10, decimals);
  return number_text(std::round(number * scale) / scale);
}

std::string in_parts(double value, const Unit& unit) {
  const std::int64_t all =
      std::llround(std::clamp(value, 0.0, kLongest) / unit.size * static_cast<double>(unit.parts));
  const std::string part = std::string(" ") + unit.part_name;
  if (all == 0) return (value > 0 ? "less than 1" : "0") + part;
  std::string text;
  if (all >= unit.parts) text = std::to_string(all / unit.parts) + " " + unit.name;
  if (all % unit.parts == 0) return text;
  return text + (text.empty() ? "" : " ") + std::to_string(all % unit.parts) + part;
}

std::string amount_in(const Unit& unit, Figure figure, double value) {
  if (unit.parts != 0) return in_parts(value, unit);
  if (*unit.name == '\0') return amount_text(figure, value);
  return short_number(value / unit.size) + " " + unit.name;
}

std::string range_in(const Unit& unit, Figure figure, const FigureView& view) {
  std::string low = amount_in(unit, figure, view.low);
  if (is_unlimited(figure, view.low)) return low;
  if (is_unlimited(figure, view.high)) return "at least " + low;
  std::string high = amount_in(unit, figure, view.high);
  if (low == high) return high;
  // The unit once, at the end.
  if (view.low == 0) {
    low = "0";
  } else if (unit.parts == 0 && *unit.name != '\0') {
    low.resize(low.rfind(' '));
  }
  return low + " to " + high;
}

}  // namespace

const FigureNames& names_of(Figure figure) { return kNames.at(figure); }

std::optional<Figure> figure_of(std::string_view id) {
  for (std::size_t i = 0; i < kFigures; ++i) {
    if (id == kNames.at(i).id) return Figure{i};
  }
  return std::nullopt;
}

bool is_unlimited(Figure figure, double value) {
  return std::isinf(value) || (figure == kRatio && value >= kUnlimitedRatio);
}

std::string amount_text(Figure figure, double value) {
  if (is_unlimited(figure, value)) return "unlimited";
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

FigureWords words_for(Figure figure, const FigureView& view) {
  const Unit unit = unit_of(figure, view);
  FigureWords words;
  words.value = amount_in(unit, figure, view.value);
  if (!view.has_usual) return words;
  words.usual = amount_in(unit, figure, view.usual);
  words.range = range_in(unit, figure, view);
  return words;
}

std::string value_in_words(Figure figure, const FigureView& view) {
  const std::string amount = words_for(figure, view).value;
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
