#include "config/service_values.h"

#include <algorithm>

#include "config/setting_values.h"
#include "util/to_int.h"
#include "util/wrapping.h"

namespace corvane {

namespace {

constexpr int kSecondsPerMonth = 30 * 24 * 60 * 60;

}  // namespace

int switch_value(const Setting& flag, const std::string& value) {
  return value.empty() ? default_number(flag) : to_int(value);
}

int gather_interval_minutes(const std::string& value) {
  return std::max(to_int(value), setting::kGatherFrequency.least);
}

int purge_interval_months(const std::string& value) {
  if (value.empty()) return default_number(setting::kPurgeInterval);
  return std::min(to_int(value), setting::kPurgeInterval.most);
}

int purge_cut_off(int now, int months) {
  return wrapping_subtract(now, wrapping_multiply(months, kSecondsPerMonth));
}

}  // namespace corvane
