// The metrics for Prometheus.
#pragma once

#include <prometheus/metric_family.h>

#include <string>
#include <vector>

#include "operator_tool/ask/health.h"
#include "operator_tool/ask/picture.h"

namespace corvane::ctl {

struct Measured {
  Health health;
  Picture picture;
  std::int64_t feedback_rows = 0;
};
Measured measure(const Options& options, Database& database);

// Unknown values are left out.
std::vector<prometheus::MetricFamily> metrics_of(const Measured& measured);

// Prometheus' text format.
std::string prometheus_text(const std::vector<prometheus::MetricFamily>& families);

}  // namespace corvane::ctl
