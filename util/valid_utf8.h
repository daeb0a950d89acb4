// Names come from anywhere, JSON is UTF-8.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace corvane {

// How many bytes the UTF-8 character at the begin of `text`, which is not empty, has; 0: it is
// none.
std::size_t utf8_length(std::string_view text);

// Of one UTF-8 character; of another single byte, its value.
char32_t code_point(std::string_view character);

// `text` with each byte that belongs to no UTF-8 character replaced by U+FFFD.
std::string valid_utf8(std::string_view text);

}  // namespace corvane
