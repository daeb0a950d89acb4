// JSON documents as text.
#pragma once

#include <jansson.h>

#include <cstddef>
#include <string>

namespace corvane {

// `flags` as for json_dumps(). Numbers have up to 15 significant digits, so that what was rounded
// stays as short as that. Throws std::bad_alloc.
std::string json_text(const json_t* value, std::size_t flags = JSON_COMPACT);

}  // namespace corvane
