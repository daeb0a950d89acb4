// Where the host product is installed.
#pragma once

#include <string_view>

namespace corvane {

// With its trailing "/"; getCVInstallDir gives it to the services.
inline constexpr std::string_view kInstallRoot = "/usr/tessel/";

}  // namespace corvane
