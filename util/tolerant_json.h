// JSON of a sender that does not keep its names clean.
#pragma once

#include <string>
#include <string_view>

namespace corvane {

// `json` with U+FFFD in place of three things in its texts that a strict reader refuses: bytes that
// are no UTF-8, escapes of NUL, and escapes of half a surrogate pair. Sound JSON is unchanged.
std::string tolerant_json(std::string_view json);

}  // namespace corvane
