// Messages to the person who called the program.
#pragma once

#include <string_view>

namespace corvane {

// Writes `text` to standard output, or standard error, and flushes. If the descriptor is closed,
// the text is dropped: left in the stream's buffer it would later be written to whatever file has
// the descriptor's number by then.
void write_console(std::string_view text);
void write_console_error(std::string_view text);

}  // namespace corvane
