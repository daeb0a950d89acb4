// An anomaly as a JSON object: in anomalies, show and report the same.
#pragma once

#include "operator_tool/anomalies.h"
#include "platform/c_handles.h"

namespace corvane::ctl {

JsonPtr json_of(const FoundAnomaly& found);

}  // namespace corvane::ctl
