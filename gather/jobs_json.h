// Parsing the output of the REST interface and the jobs tool.
#pragma once

#include <string>

#include "platform/c_handles.h"

namespace corvane {

// Parses `text`, whose root must have the given type. Otherwise logs the whole text and throws
// std::runtime_error.
JsonPtr load_jobs_json(const std::string& text, json_type root_type);

}  // namespace corvane
