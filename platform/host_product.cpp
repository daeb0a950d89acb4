#include "platform/host_product.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/console.h"
#include "platform/daemon_mark.h"
#include "platform/install_root.h"
#include "platform/master_config.h"
#include "platform/service_account.h"

namespace {

constexpr int kFormatVersion = 1;

// The settings together with the record that points into them.
struct MasterRecord {
  explicit MasterRecord(corvane::MasterSettings read) : settings(std::move(read)) {
    for (const std::string& name : settings.servers) servers.push_back(name.c_str());
    servers.push_back(nullptr);
    config = {kFormatVersion, settings.host_name.c_str(), servers.data()};
  }

  corvane::MasterSettings settings;
  std::vector<const char*> servers;
  MasterConfig config{};
};

std::unique_ptr<MasterRecord> master_record;

int copy_text(std::string_view text, char* buffer, std::size_t size) {
  if (text.size() >= size) {
    if (size > 0) buffer[0] = '\0';
    return -1;
  }
  text.copy(buffer, text.size());
  buffer[text.size()] = '\0';
  return 0;
}

std::string system_host_name() {
  std::array<char, HOST_NAME_MAX + 1> name{};
  return gethostname(name.data(), name.size()) == 0 ? name.data() : "";
}

}  // namespace

int getCVInstallDir(char* buffer, std::size_t size) {
  return copy_text(corvane::kInstallRoot, buffer, size);
}

int CV_read_master_config() {
  master_record.reset();
  auto settings = corvane::read_master_settings(corvane::master_config_path());
  if (!settings || !settings->has_valid_servers()) return -1;
  master_record = std::make_unique<MasterRecord>(std::move(*settings));
  return 0;
}

const MasterConfig* get_master_config_ptr() {
  return master_record ? &master_record->config : nullptr;
}

int qp_gethostname(char* buffer, std::size_t size) {
  const auto settings = corvane::read_master_settings(corvane::master_config_path());
  const std::string name =
      settings && !settings->host_name.empty() ? settings->host_name : system_host_name();
  const int result = copy_text(name, buffer, size);
  return name.empty() ? -1 : result;
}

int pluma_is_master_server(const char* host_name) {
  const auto settings = corvane::read_master_settings(corvane::master_config_path());
  return settings && settings->has_valid_servers() && settings->servers.front() == host_name ? 1
                                                                                             : 0;
}

void pluma_set_corvane_daemon(int is_daemon) { corvane::mark_daemon(is_daemon != 0); }

int enable_process_for_service_account() {
  const std::string tools = std::string(corvane::kInstallRoot) + "corvane/bin";
  // Without the directory there are no tools either; whoever calls one reports that.
  [[maybe_unused]] const int moved = chdir(tools.c_str());
  const std::string failure = corvane::take_configured_account(corvane::master_config_path());
  if (!failure.empty()) {
    corvane::write_console_error(std::string(program_invocation_short_name) + ": " + failure +
                                 "\n");
    std::exit(1);
  }
  return 0;
}
