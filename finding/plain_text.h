// Makes texts from anywhere safe to show to people.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace corvane {

inline constexpr std::size_t kMostNameCharacters = 200;

// Returns one line of valid UTF-8. Control characters become blanks, invisible characters that only
// affect others are left out, and angle brackets become similar ones that are no markup. Everything
// after `most` characters is replaced by an ellipsis.
std::string plain_text(std::string_view text, std::size_t most = kMostNameCharacters);

}  // namespace corvane
