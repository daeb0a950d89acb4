// Files that are there whole or not at all.
#pragma once

#include <string>
#include <string_view>

namespace corvane::ctl {

// Puts `text` in the place of the file, or leaves the former one: readers never see a part of it,
// nor does a power failure leave one. Mode 0644 less the umask. Throws Trouble, also for what is
// there and no regular file.
void replace_file(const std::string& path, std::string_view text);

}  // namespace corvane::ctl
