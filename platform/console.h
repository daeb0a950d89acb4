// What a program says to the person who called it.
#pragma once

#include <string_view>

namespace corvane {

// Writes `text` to standard output, or standard error, and flushes. Where the descriptor is closed
// the text is dropped for good: left in the stream's buffer it would later come out in whatever
// file has taken the descriptor's number.
void write_console(std::string_view text);
void write_console_error(std::string_view text);

}  // namespace corvane
