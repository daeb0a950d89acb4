// The texts that tell what kind of backup a record is of, as the gathers spell them.
#pragma once

#include <string>
#include <string_view>

namespace corvane {

// Two gathers spell types differently ("NAS-Data-Protection", "NAS_DATA_PROTECTION"; schedule type
// 0, "FULL"): folded texts are equal when the types are.
std::string fold_policy_type(std::string_view text);
std::string fold_schedule_type(std::string_view text);

// The historical gather knows neither: "NONE" and "NA", or empty, stand for unknown.
bool is_known_application(std::string_view type);
bool is_known_destination(std::string_view name);

}  // namespace corvane
