#include "operator_tool/terminal/terminal.h"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cstdlib>
#include <cwchar>
#include <limits>

#include "finding/plain_text.h"
#include "util/valid_utf8.h"

namespace corvane::ctl {

namespace {

constexpr char kEllipsis[] = "\xE2\x80\xA6";

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

std::size_t width_of_output() {
  const std::string columns = variable("COLUMNS");
  std::size_t width = 0;
  std::from_chars(columns.data(), columns.data() + columns.size(), width);
  if (width > 0) return width;
  winsize size{};
  if (isatty(STDOUT_FILENO) == 1 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0)
    return size.ws_col;
  return 0;
}

const char* escape_of(Style style) {
  switch (style) {
    case Style::kBold:
      return "\x1B[1m";
    case Style::kFaint:
      return "\x1B[2m";
    case Style::kWarning:
      return "\x1B[33m";
    case Style::kBad:
      return "\x1B[31m";
    case Style::kPlain:
      break;
  }
  return "";
}

// wcwidth() knows what the locale knows.
std::size_t columns_of(std::string_view character) {
  if (character.size() == 1) return 1;
  static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  if (utf8 == nullptr) return 1;
  const locale_t former = uselocale(utf8);
  const int columns = wcwidth(static_cast<wchar_t>(code_point(character)));
  uselocale(former);
  return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

// The first character of a text that is not empty; a byte that begins none is one.
std::string_view first_character(std::string_view text) {
  return text.substr(0, std::max<std::size_t>(utf8_length(text), 1));
}

// Blocks and lines of charts have equivalents in ASCII.
std::string in_ascii(std::string_view character) {
  if (character.size() == 1) return std::string(character);
  const char32_t code = code_point(character);
  if (code >= 0x2581 && code <= 0x2588) return "#";
  if (code == 0x2500) return "-";
  if (code == 0x2502 || code == 0x2524) return "|";
  if (code == 0x2039) return "<";
  if (code == 0x203A) return ">";
  if (code == 0x2026) return "~";
  std::string text;
  text.append(columns_of(character), '?');
  return text;
}

}  // namespace

Terminal terminal_of_output(bool no_colour) {
  const bool is_terminal = isatty(STDOUT_FILENO) == 1;
  Terminal terminal;
  terminal.width = width_of_output();
  terminal.colour = is_terminal && !no_colour && variable("NO_COLOR").empty() &&
                    variable("TERM") != "dumb" && !variable("TERM").empty();
  terminal.utf8 = !is_terminal || std::string_view(nl_langinfo(CODESET)) == "UTF-8";
  return terminal;
}

std::string safe(std::string_view text) {
  return plain_text(text, std::numeric_limits<std::size_t>::max());
}

std::size_t display_width(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    const std::string_view character = first_character(text);
    width += columns_of(character);
    text.remove_prefix(character.size());
  }
  return width;
}

std::string fitted(std::string_view text, std::size_t width) {
  if (width == 0 || display_width(text) <= width) return std::string(text);
  std::string cut;
  std::size_t used = 1;  // by the ellipsis
  while (!text.empty()) {
    const std::string_view character = first_character(text);
    used += columns_of(character);
    if (used > width) break;
    cut += character;
    text.remove_prefix(character.size());
  }
  return cut + kEllipsis;
}

std::string padded(std::string_view text, std::size_t width, bool right) {
  const std::size_t used = display_width(text);
  const std::string blanks(std::max(width, used) - used, ' ');
  return right ? blanks + std::string(text) : std::string(text) + blanks;
}

std::string styled(const Terminal& terminal, Style style, const std::string& text) {
  if (!terminal.colour || style == Style::kPlain || text.empty()) return text;
  return escape_of(style) + text + "\x1B[0m";
}

std::string wrapped(const Terminal& terminal, std::string_view text, std::size_t indent) {
  std::string lines;
  std::size_t column = indent;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    std::string_view word = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const std::size_t width = display_width(word);
    if (column > indent) {
      if (terminal.width > 0 && column + 1 + width > terminal.width) {
        lines += '\n' + std::string(indent, ' ');
        column = indent;
      } else {
        lines += ' ';
        ++column;
      }
    }
    lines += word;
    column += width;
  }
  return lines + '\n';
}

std::string shown(const Terminal& terminal, std::string_view text) {
  if (terminal.utf8) return std::string(text);
  std::string ascii;
  while (!text.empty()) {
    const std::string_view character = first_character(text);
    ascii += in_ascii(character);
    text.remove_prefix(character.size());
  }
  return ascii;
}

}  // namespace corvane::ctl
