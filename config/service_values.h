// How the service reads values of its configuration, for itself and for who tells of it.
#pragma once

#include <string>

namespace corvane {

// A switch of section "ANOMALY_DETECTION_FUNCTIONALITY": the number that the value begins with, 0
// for no number, the low 32 bits of one that is too large; `if_empty` for an empty value. 1 is
// "disabled", 0 is not, everything else is invalid.
int switch_value(const std::string& value, int if_empty);

// LIVE_DATA_GATHER_FREQUENCY_IN_MIN: what is less than 15, or no number, is 15.
int gather_interval_minutes(const std::string& value);

}  // namespace corvane
