// An installation whose health is looked at.
#pragma once

#include "health/health.h"
#include "platform/program_names.h"
#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::health {

using namespace ctl;  // NOLINT(google-build-using-namespace)

class HealthTest : public OperatorWorld {
 protected:
  static constexpr pid_t kGone = 1 << 23;  // above what Linux numbers processes with

  Configured configured(const std::string& text) {
    configure(text);
    return read_configuration(directory_("anomaly_config.conf"));
  }
  Configured with_switches(const std::string& service, const std::string& detection,
                           const std::string& alerts) {
    return configured("[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_ANOMALY_DETECTION=" + service +
                      "\nDISABLE_DETECTION_SERVICE=" + detection +
                      "\nDISABLE_ALERT_SERVICE=" + alerts + "\n");
  }
  int interval(const std::string& value) {
    return configured("[DATA_GATHER_SETTINGS]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=" + value + "\n")
        .interval_minutes;
  }
  Health health() {
    Database opened(database());
    return look(with_paths().places(), opened);
  }
  Daemon service() { return health().service(); }
  // Later than this process began, and so than any gather of it ended.
  static std::int64_t later() { return started_at(getpid()) + 10 * kDay; }
  // A gather that ended then and took 7 seconds.
  void gathered_until(std::int64_t end) const {
    coverage::Ledger ledger = looked();
    coverage::Gathers(ledger).add(
        {.start = end - 900, .end = end - 7, .began = end - 7, .ended = end});
  }
};

}  // namespace corvane::health
