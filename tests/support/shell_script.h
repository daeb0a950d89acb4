// Small shell scripts that stand in for the product's tools.
#pragma once

#include <filesystem>
#include <string>

#include "tests/support/scratch_dir.h"

namespace corvane::test {

// Writes an executable script of /bin/sh.
inline void write_script(const std::filesystem::path& path, const std::string& body) {
  write_file(path, "#!/bin/sh\n" + body);
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}

}  // namespace corvane::test
