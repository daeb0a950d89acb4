// Switching from root to an account.
#pragma once

#include <string>

namespace corvane {

// Switches a process that runs as root to the account's groups, gid and uid for good. Returns an
// empty text if that worked and root cannot be regained, else the reason; the process may then have
// given up some of its rights and should end.
std::string take_account(const std::string& account);

// Switches to the account that owns a file, if this process runs as root; nothing happens if the
// file is absent. Returns an empty text, or why the process must not go on.
std::string take_owner(const std::string& path);

// Switches to the account that the configuration file names, if any, if this process runs as root.
// Returns an empty text, or why the process must not go on: switching failed, or the file exists
// but cannot be read, so that the account is not known.
std::string take_configured_account(const std::string& config_path);

}  // namespace corvane
