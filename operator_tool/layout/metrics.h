// The metrics for Prometheus.
#pragma once

#include <prometheus/metric_family.h>

#include <string>
#include <vector>

#include "health/health.h"
#include "operator_tool/ask/picture.h"
#include "operator_tool/layout/check.h"
#include "operator_tool/options.h"

namespace corvane::ctl {

struct Measured {
  health::Health health;
  Picture picture;
  std::int64_t feedback_rows = 0;
};
Measured measure(const Options& options, health::Database& database);

// Unknown values are left out.
std::vector<prometheus::MetricFamily> metrics_of(const Measured& measured);

// Those of an anomaly database that could not be read: what `result` says is a problem, too.
std::vector<prometheus::MetricFamily> metrics_without_database(const health::Health& health,
                                                               const CheckResult& result);

// What metrics prints of it; nothing when it wrote a file.
std::string run_metrics_without_database(const Options& options, const CheckResult& result);

// Prometheus' text format.
std::string prometheus_text(const std::vector<prometheus::MetricFamily>& families);

}  // namespace corvane::ctl
