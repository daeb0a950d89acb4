// Giving up root for an account.
#pragma once

#include <string>

namespace corvane {

// Takes the account's groups, gid and uid for good. For a process that runs as root. Returns the
// empty text when that is done and root cannot be regained, else the reason; the process may then
// have given up part of its rights and should end.
std::string take_account(const std::string& account);

// Prepares this process to run under the account that the configuration file names, when it runs
// as root and one is named. Returns the empty text, or why it must not go on: a configured account
// cannot be taken, or the file is there but cannot tell whether one is configured.
std::string take_configured_account(const std::string& config_path);

}  // namespace corvane
