// An anomaly as a JSON object, the same in anomalies and in show. The page of report has a shorter
// one, of what it draws.
#pragma once

#include "operator_tool/anomalies.h"
#include "platform/c_handles.h"

namespace corvane::ctl {

JsonPtr json_of(const FoundAnomaly& found);

}  // namespace corvane::ctl
