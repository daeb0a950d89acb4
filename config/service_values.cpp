#include "config/service_values.h"

#include <algorithm>
#include <cstdlib>

namespace corvane {

namespace {

constexpr int kMinFetchIntervalMinutes = 15;

int number_of(const std::string& value) {
  return static_cast<int>(std::strtol(value.c_str(), nullptr, 10));
}

}  // namespace

int switch_value(const std::string& value, int if_empty) {
  return value.empty() ? if_empty : number_of(value);
}

int gather_interval_minutes(const std::string& value) {
  return std::max(number_of(value), kMinFetchIntervalMinutes);
}

}  // namespace corvane
