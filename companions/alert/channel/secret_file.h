// Secrets are kept in files, never in the configuration or on a command line.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

namespace corvane::alert {

// The file's content without a trailing line end. Throws std::runtime_error, which names the file
// and never its content, when the file cannot be read, must not be trusted, is empty or is longer
// than 4 KiB.
std::string read_secret(const std::string& path);

// Why a file must not be trusted with a secret of `user`: it is not a regular file, belongs to
// another user than `user` or root, or grants access to others than its owner. Empty: it may be.
std::string why_not_secret(const struct stat& file, uid_t user);

}  // namespace corvane::alert
