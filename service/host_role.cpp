#include "service/host_role.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <optional>
#include <sstream>

#include "platform/c_handles.h"
#include "platform/debug_log.h"
#include "platform/host_product.h"
#include "platform/program_names.h"
#include "util/directory.h"
#include "util/path.h"
#include "util/process.h"
#include "util/scratch_file.h"

using corvane::kLogDetail;
using corvane::kLogError;
using corvane::kManagementProgram;

std::string dbLogPath;

namespace {

constexpr char kConfigFile[] = "anomaly_config.conf";
constexpr char kAnomalyServerKey[] = "ANOMALY_PROXY_SERVER";
constexpr std::size_t kPathBuffer = 512;
constexpr std::size_t kHostNameBuffer = 257;

// The install directory with a trailing "/"; nothing (logged) if it is unknown.
std::optional<std::string> install_directory() {
  std::array<char, kPathBuffer> buffer{};
  if (getCVInstallDir(buffer.data(), buffer.size()) != 0) {
    logmsg(kLogError, kManagementProgram, "getCVInstallDir() failed");
    return std::nullopt;
  }
  return buffer.data();
}

// Sets `name` to the third word of the first line in `lines` that begins with the key.
void read_anomaly_server(std::istream& lines, std::string& name) {
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(kAnomalyServerKey)) continue;
    std::istringstream words(line);
    std::string key;
    std::string separator;
    std::string value;
    words >> key >> separator >> value;
    if (value.empty()) {
      logmsg(kLogDetail, kManagementProgram, "qpconf anomaly Server name is empty");
    } else {
      name = value;
    }
    return;
  }
}

}  // namespace

std::string getDBLocation() {
  if (!dbLogPath.empty()) return dbLogPath;
  const auto install = install_directory();
  if (!install) return "";
  std::array<char, kPathBuffer> path{};
  std::snprintf(path.data(), path.size(), "%s%s%c%s%c%s", install->c_str(), "var", '/', "global",
                '/', "anomaly_detection");
  dbLogPath = path.data();
  return dbLogPath;
}

int getConfigFilePath(std::string& path) {
  const std::string db = getDBLocation();
  if (db.empty()) {
    logmsg(kLogError, "getConfigFilePath", "Failed to get DB location");
    return 1;
  }
  path = Path::Combine(db, kConfigFile);
  return 0;
}

void get_host_name(std::string& name) {
  std::array<char, kHostNameBuffer> buffer{};
  qp_gethostname(buffer.data(), buffer.size());
  name = buffer.data();
}

void getMasterServerName(std::string& name) {
  if (CV_read_master_config() == 0) {
    const MasterConfig* config = get_master_config_ptr();
    if (config != nullptr && config->servers != nullptr && config->servers[0] != nullptr &&
        config->servers[0][0] != '\0') {
      name = config->servers[0];
      return;
    }
  }
  logmsg(kLogError, "getMasterServerName", "ERR - Call to getMasterServerName() failed.\n");
}

bool IsMasterServer() {
  std::string host;
  get_host_name(host);
  return pluma_is_master_server(host.c_str()) != 0;
}

std::string getqpgetconfigPath() {
  const auto install = install_directory();
  return !install ? "" : *install + "corvane/bin/admincmd/qpgetconfig";
}

void getAnomalyServerName(std::string& name) {
  const std::string tool = getqpgetconfigPath();
  const std::string db = getDBLocation();
  if (!Directory::Exists(db)) {
    logmsgf(kLogDetail, kManagementProgram, "\nDatabase directory: %s does not exit.\n",
            db.c_str());
    return;
  }
  std::string master;
  getMasterServerName(master);

  const corvane::ScratchFile scratch(db + "/temp_out_file.txt");
  // Creates an empty file, and stays open while the tool is running.
  const corvane::FilePtr handle(std::fopen(scratch.path().c_str(), "w"));
  Process process(tool + " -M " + master + "  ", "");
  process.redirect_to_file(scratch.path());
  process.start();
  std::ifstream output(scratch.path());
  read_anomaly_server(output, name);
}

bool isAnomalyRunningOnDiffServer() {
  std::string server;
  getAnomalyServerName(server);
  std::string host;
  get_host_name(host);
  return server.empty() ? !IsMasterServer() : server != host;
}
