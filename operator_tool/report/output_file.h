// Files that are replaced atomically.
#pragma once

#include <string>
#include <string_view>

namespace corvane::ctl {

// Replaces the file by `text`, or leaves the former one: readers never see a part of it, not even
// after a power failure. Mode 0644 less the umask. Throws Trouble, also when something is there
// that is not a regular file.
void replace_file(const std::string& path, std::string_view text);

}  // namespace corvane::ctl
