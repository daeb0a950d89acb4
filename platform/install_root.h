// Where the host product is installed.
#pragma once

#include <string_view>

namespace corvane {

// With a trailing "/"; services get it from getCVInstallDir.
inline constexpr std::string_view kInstallRoot = "/usr/tessel/";

}  // namespace corvane
