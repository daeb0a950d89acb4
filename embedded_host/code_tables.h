// The host product's policy types and schedule types: their codes and the names that the web
// service uses for them.
#pragma once

#include <optional>
#include <string_view>

namespace corvane::host {

// The code of a policy type ("NAS_DATA_PROTECTION" is 6); empty for an unknown name.
std::optional<int> policy_type_code(std::string_view name);

// The code of a schedule type ("DIFFERENTIAL_INCREMENTAL" is 1); empty for an unknown name.
std::optional<int> schedule_type_code(std::string_view name);

}  // namespace corvane::host
