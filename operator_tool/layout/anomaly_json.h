// An anomaly as a JSON object, the same in anomalies and show. The report has a shorter one.
#pragma once

#include "finding/anomaly.h"
#include "platform/c_handles.h"

namespace corvane::ctl {

// `details`: ANOMALY_DETAILS of its row, parsed; null when they cannot be read.
JsonPtr to_json(const Anomaly& anomaly, JsonPtr details);

}  // namespace corvane::ctl
