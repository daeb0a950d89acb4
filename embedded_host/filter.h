// The filter language of the web service:
//
//   filter     = and-terms { "or" and-terms }
//   and-terms  = term { "and" term }
//   term       = "(" filter ")" | attribute ("ge" | "le" | "eq") value
//   value      = 'text' (a quote inside is doubled) | time | number
//
// for example: startTime ge 2026-01-31T00:00:00.000Z and (jobType eq 'BACKUP' or status eq 0)
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace corvane::host {

enum class AttributeKind { kText, kInteger, kReal, kTime };

// An attribute that filters and sort orders may use. In SQL, times are seconds since the epoch.
struct FilterAttribute {
  std::string_view name;
  std::string_view sql;  // an SQL expression for its value
  AttributeKind kind;
};

// Why a filter cannot be parsed. `position` counts its characters from 1.
class BadFilter : public std::runtime_error {
 public:
  BadFilter(const std::string& reason, std::size_t position)
      : std::runtime_error(reason), position_(position) {}
  std::size_t position() const { return position_; }

 private:
  std::size_t position_;
};

// An SQL condition with numbered parameters. It contains no text of the filter itself.
struct FilterSql {
  std::string condition;
  std::vector<std::variant<std::int64_t, double, std::string>> values;
};

// Translates a filter over `attributes`; its parameters are numbered from `first_parameter`. Throws
// BadFilter. Parentheses may be 32 deep, and there may be 100 comparisons.
FilterSql translate_filter(std::string_view filter, std::span<const FilterAttribute> attributes,
                           int first_parameter);

}  // namespace corvane::host
