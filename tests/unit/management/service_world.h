// A ManagementService in an installation tree of its own.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "management/management_service.h"
#include "service/host_role.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/shell_script.h"
#include "tests/support/sql.h"

namespace corvane::test {

inline constexpr char kProgram[] = "cvanomalymgmt";
inline constexpr char kMaster[] = "master01.example.com";
inline constexpr char kHistory[] = "ManagementService::do_historical_gather";
inline constexpr int kHistorySeconds = 7862400;
inline constexpr int kNow = 1'700'000'000;  // where the fake clock starts

using corvane::fake::LogLine;

inline LogLine progress(const std::string& text) { return {2, kProgram, text}; }

// The lines of one tag.
inline std::vector<LogLine> log_of(const std::string& tag) {
  std::vector<LogLine> lines = corvane::fake::log_lines();
  std::erase_if(lines, [&](const LogLine& line) { return line.tag != tag; });
  return lines;
}

// Runs on the platform fake: a master server whose web service has nothing to tell, and whose
// process table is empty. A scratch tree is the installation.
struct ServiceWorld {
  ServiceWorld() {
    open_databases_without_syncing();
    std::filesystem::create_directories(location);
    corvane::fake::State& fake = corvane::fake::state();
    fake.install_dir = scratch() + "/";
    fake.handler = [](const corvane::fake::HttpRequest&) {
      return corvane::fake::HttpAnswer{.result = 0, .status = 200, .body = "{}"};
    };
    dbLogPath.clear();
    service.m_config_file_path = location + "/anomaly_config.conf";
  }
  ~ServiceWorld() { dbLogPath.clear(); }

  // Opens the database, for tests that do not begin with start().
  void open() {
    service.initializeDB();
    gather = std::make_unique<DataGather>(service.m_db.get(), location, kMaster);
  }

  std::string database() const { return location + "/CV_Anomaly.db"; }
  sqlite3* handle() const { return service.m_db->get_db_handle(); }
  std::string rows(const std::string& table) const { return count(handle(), table); }

  void configure(const std::string& content) { write_file(service.m_config_file_path, content); }

  void configure_states(const std::string& management, const std::string& detection,
                        const std::string& alert) {
    configure("[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_ANOMALY_DETECTION=" + management +
              "\nDISABLE_DETECTION_SERVICE=" + detection + "\nDISABLE_ALERT_SERVICE=" + alert +
              "\n");
  }

  // What the product's configuration tool prints.
  void product_configuration(const std::string& line) {
    write_script(scratch("corvane/bin/admincmd/qpgetconfig"), "echo '" + line + "'\n");
  }

  ScratchDir scratch;
  std::string location = scratch("var/global/anomaly_detection");
  ManagementService service{location, "CV_Anomaly.db", "FULL", kMaster, 15};
  std::unique_ptr<DataGather> gather;  // after open()
};

// An archive beside the database, so that history is already there from `start` to `end`.
inline void cover(const ServiceWorld& world, int start, int end) {
  const std::string archive = world.scratch("var/global/incremental/a");
  write_file(archive + "/master.txt", kMaster);
  write_file(archive + "/gather_options.json",
             R"({"start": )" + std::to_string(start) + R"(, "end": )" + std::to_string(end) + "}");
}

// The fixture of most tests of this room, its database open.
class ServiceTest : public PlatformFake {
 protected:
  void SetUp() override {
    PlatformFake::SetUp();
    world = std::make_unique<ServiceWorld>();
    world->open();
    db = world->handle();
  }
  void TearDown() override {
    world.reset();
    PlatformFake::TearDown();
  }

  ManagementService& service() { return world->service; }
  DataGather& gather() { return *world->gather; }

  std::unique_ptr<ServiceWorld> world;
  sqlite3* db = nullptr;
};

}  // namespace corvane::test
