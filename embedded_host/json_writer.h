// Writing JSON text directly, for answers and tool output of any length.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace corvane::host {

// Appends `text` (UTF-8) as a JSON string.
void append_json_text(std::string& out, std::string_view text);

// Appends a number so that it reads back as the same double, and as a real: 1 is written "1.0".
void append_json_real(std::string& out, double value);

// Writes the members of one JSON object, braces included: "{" at once, "}" by close().
class JsonObject {
 public:
  explicit JsonObject(std::string& out) : out_(out) { out_ += '{'; }

  void add(std::string_view name, std::string_view value);
  void add(std::string_view name, std::int64_t value);
  void add(std::string_view name, double value);
  // `json` is JSON already.
  void add_json(std::string_view name, std::string_view json);
  // Writes a member's name; the caller writes its value.
  void begin_member(std::string_view name);
  void close() { out_ += '}'; }

 private:
  std::string& out_;
  bool first_ = true;
};

// `text` with everything but printable ASCII written as \xNN, to show unknown bytes to people.
std::string printable(std::string_view text);

}  // namespace corvane::host
