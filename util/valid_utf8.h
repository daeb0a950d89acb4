// Names may have any bytes, but JSON is UTF-8.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace corvane {

// The length in bytes of the UTF-8 character that `text`, which is not empty, begins with; 0 if it
// is not valid.
std::size_t utf8_length(std::string_view text);

// The code point of one UTF-8 character; the value of any other single byte.
char32_t code_point(std::string_view character);

// `text` with each byte that is not part of a UTF-8 character replaced by U+FFFD.
std::string valid_utf8(std::string_view text);

}  // namespace corvane
