// JSON documents as every command prints them with --json.
#pragma once

#include "platform/c_handles.h"
#include "util/json.h"

namespace corvane::ctl {

// An object with the members "schema" (1) and "command".
JsonPtr document(const char* command);

}  // namespace corvane::ctl
