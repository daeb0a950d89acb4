// A filter understood a second time, apart from the product's code: evaluated on an element, and
// written out again from its SQL.
#pragma once

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <span>
#include <string>
#include <utility>
#include <variant>

#include "embedded_host/filter.h"
#include "embedded_host/iso_time.h"
#include "tests/fuzz/fuzz.h"

namespace corvane::fuzz {

struct Element {
  std::string client;
  std::int64_t job;
  double ratio;
  std::int64_t start;
};

// Evaluates a filter that is known to be well formed.
class FilterMeaning {
 public:
  FilterMeaning(std::string filter, const Element& element)
      : filter_(std::move(filter)), element_(element) {}

  bool holds() {
    const bool result = any();
    require(word().empty() && at_ == filter_.size(), "the whole filter was read");
    return result;
  }

 private:
  void skip_blanks() {
    while (at_ < filter_.size() && filter_[at_] == ' ') ++at_;
  }

  std::string word() {
    skip_blanks();
    const std::size_t end = std::min(filter_.find_first_of(" ()'", at_), filter_.size());
    const std::string found = filter_.substr(at_, end - at_);
    at_ = end;
    return found;
  }

  bool take(const std::string& wanted) {
    const std::size_t before = at_;
    if (word() == wanted) return true;
    at_ = before;
    return false;
  }

  std::string quoted() {
    skip_blanks();
    std::string found;
    for (++at_;; ++at_) {
      if (filter_[at_] == '\'' && filter_[++at_] != '\'') return found;
      found += filter_[at_];
    }
  }

  bool any() {
    bool result = all();
    while (take("or")) {
      const bool right = all();
      result = result || right;
    }
    return result;
  }

  bool all() {
    bool result = one();
    while (take("and")) {
      const bool right = one();
      result = result && right;
    }
    return result;
  }

  bool one() {
    skip_blanks();
    if (filter_[at_] != '(') return comparison();
    ++at_;
    const bool result = any();
    skip_blanks();
    require(filter_[at_] == ')', "parentheses are closed");
    ++at_;
    return result;
  }

  bool comparison() {
    const std::string name = word();
    const std::string sign = word();
    if (name == "clientName") return compare(element_.client, sign, quoted());
    if (name == "jobId") return compare<long double>(element_.job, sign, number(word()));
    if (name == "dedupRatio") return compare<long double>(element_.ratio, sign, number(word()));
    return compare<long double>(element_.start, sign, time(word()));
  }

  template <typename Operand>
  static bool compare(const Operand& left, const std::string& sign, const Operand& right) {
    if (sign == "ge") return left >= right;
    if (sign == "le") return left <= right;
    return left == right;
  }

  // Whole numbers of 64 bits count exactly, which a long double holds too.
  static long double number(const std::string& text) {
    errno = 0;
    const bool whole =
        text.find_first_not_of("0123456789", text[0] == '-' ? 1 : 0) == std::string::npos;
    const long long exact = std::strtoll(text.c_str(), nullptr, 10);
    if (whole && errno == 0) return static_cast<long double>(exact);
    return std::strtod(text.c_str(), nullptr);
  }

  static long double time(const std::string& text) {
    std::tm parts{};
    const char* rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    require(rest != nullptr, "a time that was accepted is one", text);
    const double fraction =
        *rest == '.' ? std::strtod(("0" + std::string(rest)).c_str(), nullptr) : 0;
    return static_cast<double>(timegm(&parts)) + fraction;
  }

  std::string filter_;
  const Element& element_;
  std::size_t at_ = 0;
};

inline std::string time_literal(double time) {
  const double seconds = std::floor(time);
  const std::string milliseconds = std::to_string(1000 + std::lround((time - seconds) * 1000));
  return corvane::host::iso_time(static_cast<std::int64_t>(seconds)).substr(0, 20) +
         milliseconds.substr(1) + "Z";
}

inline std::string literal(const std::variant<std::int64_t, double, std::string>& value,
                           bool is_time) {
  if (const auto* text = std::get_if<std::string>(&value)) {
    std::string quoted = "'";
    for (const char c : *text) quoted += c == '\'' ? "''" : std::string(1, c);
    return quoted + "'";
  }
  if (const auto* whole = std::get_if<std::int64_t>(&value)) {
    return is_time ? corvane::host::iso_time(*whole) : std::to_string(*whole);
  }
  const double real = std::get<double>(value);
  if (is_time) return time_literal(real);
  char digits[64];
  std::snprintf(digits, sizeof digits, "%.17e", real);  // the exponent keeps it a real
  return digits;
}

// The filter that a condition over `attributes`, whose SQL are plain names, stands for.
inline std::string filter_text(const corvane::host::FilterSql& sql,
                               std::span<const corvane::host::FilterAttribute> attributes) {
  std::string text;
  const std::string& condition = sql.condition;
  bool is_time = false;
  for (std::size_t at = 0; at < condition.size();) {
    const std::size_t begin = at;
    if (std::islower(static_cast<unsigned char>(condition[at]))) {
      while (std::islower(static_cast<unsigned char>(condition[at]))) ++at;
      const std::string name = condition.substr(begin, at - begin);
      const auto found = std::find_if(attributes.begin(), attributes.end(),
                                      [&](const auto& known) { return known.sql == name; });
      require(found != attributes.end(), "the condition names attributes", condition);
      text += found->name;
      is_time = found->kind == corvane::host::AttributeKind::kTime;
    } else if (condition[at] == '?') {
      char* end = nullptr;
      const unsigned long number = std::strtoul(&condition[at + 1], &end, 10);
      require(number >= 1 && number <= sql.values.size(), "parameters have values", condition);
      text += literal(sql.values[number - 1], is_time);
      at = static_cast<std::size_t>(end - condition.data());
    } else if (condition[at] == '>' || condition[at] == '<') {
      text += condition[at] == '>' ? " ge " : " le ";
      at += 2;
    } else if (condition[at] == '=') {
      text += " eq ";
      ++at;
    } else {
      text += static_cast<char>(std::tolower(static_cast<unsigned char>(condition[at])));
      ++at;
    }
  }
  return text;
}

}  // namespace corvane::fuzz
