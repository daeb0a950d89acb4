// Loading what the REST interface and the jobs tool send.
#pragma once

#include <string>

#include "platform/c_handles.h"

namespace corvane {

// Parses `text`, whose root must be of the given type. What it is not is logged with the whole text
// and thrown as std::runtime_error.
JsonPtr load_jobs_json(const std::string& text, json_type root_type);

}  // namespace corvane
