// A DataGather over a real database in a scratch directory, as the management service builds it.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "gather/data_gather.h"
#include "management/management_service.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/sql.h"

namespace corvane::test {

inline constexpr char kProgram[] = "cvanomalymgmt";
inline constexpr char kMaster[] = "master01.example.com";

using Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess;
using corvane::fake::LogLine;

// The log without the lines of the HTTPS client, which are tested in their own place.
inline std::vector<LogLine> own_log() {
  std::vector<LogLine> lines = corvane::fake::log_lines();
  std::erase_if(lines, [](const LogLine& line) { return line.tag.starts_with("CurlClient::"); });
  return lines;
}

inline std::vector<std::string> requested_paths() {
  std::vector<std::string> paths;
  for (const auto& request : corvane::fake::state().requests) paths.push_back(request.path);
  return paths;
}

// What follows "page%5Boffset%5D=" in each path asked for.
inline std::vector<std::string> requested_offsets() {
  constexpr std::string_view kOffset = "offset%5D=";
  std::vector<std::string> offsets;
  for (const std::string& path : requested_paths()) {
    const std::size_t begin = path.find(kOffset);
    if (begin == std::string::npos) continue;
    offsets.push_back(path.substr(begin + kOffset.size(), path.find('&') - begin - kOffset.size()));
  }
  return offsets;
}

// The database directory is a folder of its own inside the scratch directory, so that what lies
// beside it ("../incremental/") is the test's too. Empty master server: the tools are the source.
struct GatherWorld {
  explicit GatherWorld(const std::string& master_server = kMaster) {
    std::filesystem::create_directory(location);
    open_databases_without_syncing();
    service.initializeDB();
    gather = std::make_unique<DataGather>(service.m_db.get(), location, master_server);
  }

  sqlite3* handle() const { return service.m_db->get_db_handle(); }
  DBAccess& db() const { return *service.m_db; }

  std::string rows(const std::string& table) const { return count(handle(), table); }

  ScratchDir scratch;
  std::string location = scratch("db");
  ManagementService service{location, "CV_Anomaly.db", "FULL", "", 15};
  std::unique_ptr<DataGather> gather;
};

// The fixture of most tests of this room.
class GatherTest : public PlatformFake {
 protected:
  GatherWorld world;
  DataGather& gather = *world.gather;
  sqlite3* db = world.handle();
};

}  // namespace corvane::test
