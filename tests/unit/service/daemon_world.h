// What the tests of the daemon share: its names, what it logs, and a world in which it can run.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "tests/unit/service/service_world.h"

namespace corvane::test {

inline constexpr char kService[] = "cvanomalymgmt";
inline constexpr char kDetect[] = "cvanomalydetect";
inline constexpr char kAlert[] = "cvanomalyalert";
inline constexpr char kDisabled[] =
    "[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_ANOMALY_DETECTION=1\n";

using Log = std::vector<fake::LogLine>;

inline Log joined(std::initializer_list<Log> parts) {
  Log log;
  for (const Log& part : parts) log.insert(log.end(), part.begin(), part.end());
  return log;
}

inline fake::LogLine service(int level, const std::string& text) { return {level, kService, text}; }
inline fake::LogLine handle(int level, const std::string& text) {
  return {level, "handleChildProc", text};
}

// What stopping a companion logs at the daemon's end, when it goes and when it stays.
inline Log stopped(const std::string& name) {
  return {handle(4, "UNIX: Stopping process:[" + name + "]"),
          service(2, name + " service is getting terminated"), service(16, "process is stopped")};
}
inline Log survived(const std::string& name) {
  return {handle(4, "UNIX: Stopping process:[" + name + "]"),
          service(2, name + " service is getting terminated"),
          service(16, "process is still running"),
          handle(8, "Not able to stop [" + name + "], still running")};
}
inline Log companions_stopped() { return joined({stopped(kAlert), stopped(kDetect)}); }

}  // namespace corvane::test

// An installation with a database directory, and a configuration tool that names no other server.
class DaemonWorld : public ServiceWorld {
 protected:
  void SetUp() override {
    ServiceWorld::SetUp();
    make_database_directory();
    make_tool("exit 0\n");
  }

  // What the service logs once it knows how to work.
  corvane::test::Log configured() const {
    using corvane::test::service;
    return {service(2, "m_database_location:[" + database_directory() + "]"),
            service(2, "m_database_name:[CV_Anomaly.db]"), service(2, "m_gather_mode:[FULL]"),
            service(2, "m_data_fetch_interval_in_mins:[15]")};
  }
};
