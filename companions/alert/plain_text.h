// Texts for people out of texts from anywhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace corvane::alert {

inline constexpr std::size_t kMostNameCharacters = 200;

// One line of valid UTF-8 that shows as it is: control characters become blanks, characters that
// only steer how others are shown are left out, angle brackets become ones that are no markup. What
// is over `most` characters is cut, with an ellipsis in its place.
std::string plain_text(std::string_view text, std::size_t most = kMostNameCharacters);

// A JSON text without its escaped NUL characters, which many programs refuse or stop at.
std::string json_safe(std::string_view json);

// "2026-01-31 04:05 UTC" of seconds since the epoch; "an unknown time" when there is none.
std::string utc_text(std::int64_t seconds);

// Thousands apart; below 100 with up to two decimals: "1,234,568", "1.5".
std::string number_text(double number);

}  // namespace corvane::alert
