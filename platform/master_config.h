// The host product's master configuration file, corvane.conf.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// The content of a master configuration file; what is missing in the file is empty here.
struct MasterSettings {
  std::vector<std::string> servers;  // [domain] servers, the first is the master server
  std::string host_name;             // [host] name
  std::string service_account;       // [host] service_account
  std::string connect_to;            // [web] connect_to

  // There is at least one server, and each is a host name.
  bool has_valid_servers() const;
};

// Reads the file; nothing if it cannot be read or any line is malformed.
std::optional<MasterSettings> read_master_settings(const std::string& path);

// Only letters, digits, ".", "-" and ":", at least one of them, and no leading "-": such a name is
// safe as one word of a shell command line.
bool is_host_name(std::string_view name);

// The path of the installed file.
std::string master_config_path();

}  // namespace corvane
