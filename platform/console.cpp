#include "platform/console.h"

#include <stdio_ext.h>

#include <cstdio>
#include <iostream>

namespace corvane {

namespace {

void write_and_flush(std::ostream& stream, std::FILE* file, std::string_view text) {
  stream << text << std::flush;
  if (!stream || std::ferror(file) != 0) {
    __fpurge(file);
    std::clearerr(file);
    stream.clear();
  }
}

}  // namespace

void write_console(std::string_view text) { write_and_flush(std::cout, stdout, text); }

void write_console_error(std::string_view text) { write_and_flush(std::cerr, stderr, text); }

}  // namespace corvane
