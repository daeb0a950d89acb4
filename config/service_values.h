// How the service reads values of its configuration, for itself and for who goes by it or tells of
// it.
#pragma once

#include <string>

#include "config/settings.h"

namespace corvane {

// A flag of section "ANOMALY_DETECTION_FUNCTIONALITY": the number that the value begins with, 0 for
// no number, the low 32 bits of one that is too large; the default of `flag` for an empty value. 1
// is "disabled", 0 is not, everything else is invalid.
int switch_value(const Setting& flag, const std::string& value);

// LIVE_DATA_GATHER_FREQUENCY_IN_MIN: what is less than 15, or no number, is 15.
int gather_interval_minutes(const std::string& value);

// PURGE_DATA_INTERVAL_IN_MONTHS: the number that the value begins with, 0 for no number, the low 32
// bits of one that is too large; what is more than 12 is 12, and so is an empty value.
int purge_interval_months(const std::string& value);

// What is older than this is purged `now`, in seconds since 1970: `months` of 30 days before it.
// With none everything goes; what does not fit wraps round.
int purge_cut_off(int now, int months);

}  // namespace corvane
