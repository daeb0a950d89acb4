// An anomaly as a JSON object, the same in anomalies and in show. The page of report has a shorter
// one, of what it draws.
#pragma once

#include "finding/anomaly.h"
#include "platform/c_handles.h"

namespace corvane::ctl {

// `details`: what stands in its row, parsed; null when it cannot be read.
JsonPtr to_json(const Anomaly& anomaly, JsonPtr details);

}  // namespace corvane::ctl
