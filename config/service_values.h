// How the service reads its configuration values; also for programs that follow it or report on it.
#pragma once

#include <string>

#include "config/settings.h"

namespace corvane {

// A flag of section "ANOMALY_DETECTION_FUNCTIONALITY": the number that the value begins with, 0 if
// there is none, the low 32 bits if it is too large; the default of `flag` for an empty value. 1 is
// "disabled", 0 is "enabled", everything else is invalid.
int switch_value(const Setting& flag, const std::string& value);

// LIVE_DATA_GATHER_FREQUENCY_IN_MIN: anything below 15 or without a number is 15.
int gather_interval_minutes(const std::string& value);

// PURGE_DATA_INTERVAL_IN_MONTHS: the number that the value begins with, 0 if there is none, the low
// 32 bits if it is too large; more than 12 is 12, and so is an empty value.
int purge_interval_months(const std::string& value);

// Records older than this are purged: `months` of 30 days before `now`, in seconds since 1970. With
// 0 months everything is purged; an overflow wraps around.
int purge_cut_off(int now, int months);

}  // namespace corvane
