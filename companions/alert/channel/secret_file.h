// Secrets are kept in files, never in the configuration or on a command line.
#pragma once

#include <string>

namespace corvane::alert {

// The file's content without a trailing line end. Throws std::runtime_error that names the file and
// never the content: when it cannot be read, is no plain file, belongs to another user, can be read
// or written by others than its owner, is empty or longer than 4 KiB.
std::string read_secret(const std::string& path);

}  // namespace corvane::alert
