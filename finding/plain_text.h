// Texts for people out of texts from anywhere.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace corvane {

inline constexpr std::size_t kMostNameCharacters = 200;

// One line of valid UTF-8 that shows as it is: control characters become blanks, characters that
// only steer how others are shown are left out, angle brackets become ones that are no markup. What
// is over `most` characters is cut, with an ellipsis in its place.
std::string plain_text(std::string_view text, std::size_t most = kMostNameCharacters);

}  // namespace corvane
