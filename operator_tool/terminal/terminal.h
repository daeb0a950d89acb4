// What the screen can show, and texts that fit it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace corvane::ctl {

struct Terminal {
  std::size_t width = 0;  // columns; 0: unlimited
  bool colour = false;
  bool utf8 = true;  // false: whatever is not ASCII is shown as something that is
};

// Of standard output. COLUMNS overrides the width of the terminal. Colour only on a terminal, never
// with NO_COLOR or when `no_colour` is set.
Terminal terminal_of_output(bool no_colour);

enum class Style { kPlain, kBold, kFaint, kWarning, kBad };

// One line without control characters. Everything from the database goes through this.
std::string safe(std::string_view text);

// Columns that a safe text takes on a terminal.
std::size_t display_width(std::string_view text);
// Cut at the end, with an ellipsis in place of the rest; 0: not cut.
std::string fitted(std::string_view text, std::size_t width);
// Filled up with blanks, in front when `right`.
std::string padded(std::string_view text, std::size_t width, bool right);
std::string styled(const Terminal& terminal, Style style, const std::string& text);

// Lines of at most the terminal's width, broken at blanks; all but the first begin with `indent`
// blanks, and the first counts as if it did. Ends with a line end.
std::string wrapped(const Terminal& terminal, std::string_view text, std::size_t indent);

// The text as the terminal can show it.
std::string shown(const Terminal& terminal, std::string_view text);

}  // namespace corvane::ctl
