#include "embedded_host/json_writer.h"

#include <array>
#include <charconv>

namespace corvane::host {

namespace {

void append_hex(std::string& out, char byte) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const auto value = static_cast<unsigned char>(byte);
  out += kDigits[value / 16];
  out += kDigits[value % 16];
}

}  // namespace

void append_json_text(std::string& out, std::string_view text) {
  out += '"';
  std::size_t done = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    const bool control = static_cast<unsigned char>(c) < 0x20;
    if (!control && c != '"' && c != '\\') continue;
    out += text.substr(done, at - done);
    done = at + 1;
    if (control) {
      out += "\\u00";
      append_hex(out, c);
    } else {
      out += '\\';
      out += c;
    }
  }
  out += text.substr(done);
  out += '"';
}

void append_json_real(std::string& out, double value) {
  std::array<char, 40> digits{};
  const char* const end = std::to_chars(digits.begin(), digits.end(), value).ptr;
  const std::string_view text(digits.begin(), static_cast<std::size_t>(end - digits.begin()));
  out += text;
  if (text.find_first_of(".e") == std::string_view::npos) out += ".0";
}

void JsonObject::begin_member(std::string_view name) {
  if (!first_) out_ += ',';
  first_ = false;
  append_json_text(out_, name);
  out_ += ':';
}

void JsonObject::add(std::string_view name, std::string_view value) {
  begin_member(name);
  append_json_text(out_, value);
}

void JsonObject::add(std::string_view name, std::int64_t value) {
  begin_member(name);
  out_ += std::to_string(value);
}

void JsonObject::add(std::string_view name, double value) {
  begin_member(name);
  append_json_real(out_, value);
}

void JsonObject::add_json(std::string_view name, std::string_view json) {
  begin_member(name);
  out_ += json;
}

std::string printable(std::string_view text) {
  std::string shown;
  for (const char c : text) {
    if (c >= 0x20 && c < 0x7f) {
      shown += c;
    } else {
      shown += "\\x";
      append_hex(shown, c);
    }
  }
  return shown;
}

}  // namespace corvane::host
