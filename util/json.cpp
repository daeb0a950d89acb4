#include "util/json.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>

#include "util/valid_utf8.h"

namespace corvane {

namespace {

constexpr double kMostInteger = 1e15;  // what a double holds exactly

json_t* json_string_of(std::string_view text) {
  const std::string valid = valid_utf8(text);
  return json_stringn(valid.data(), valid.size());
}

// Takes ownership of `value`.
void set(json_t* object, const char* name, json_t* value) {
  if (json_object_set_new(object, name, value) != 0) throw std::bad_alloc();
}

}  // namespace

JsonPtr parse_json_object(std::string_view text, std::size_t most) {
  if (text.size() > most) return nullptr;
  JsonPtr root(json_loadb(text.data(), text.size(), JSON_ALLOW_NUL, nullptr));
  return json_is_object(root.get()) ? std::move(root) : nullptr;
}

std::string text_member(const json_t* object, const char* name) {
  const char* text = json_string_value(json_object_get(object, name));
  return text == nullptr ? "" : text;
}

std::int64_t integer_member(const json_t* object, const char* name) {
  return json_integer_value(json_object_get(object, name));
}

bool read_number(const json_t* object, const char* name, double& number) {
  const json_t* value = json_object_get(object, name);
  number = json_number_value(value);
  return json_is_number(value);
}

void put(json_t* object, const char* name, std::string_view text) {
  set(object, name, json_string_of(text));
}

void put(json_t* object, const char* name, const char* text) {
  put(object, name, std::string_view(text));
}

void put(json_t* object, const char* name, std::int64_t number) {
  set(object, name, json_integer(number));
}

void put(json_t* object, const char* name, double number) {
  set(object, name, std::isfinite(number) ? json_real(number) : json_null());
}

void put(json_t* object, const char* name, bool value) { set(object, name, json_boolean(value)); }

void put(json_t* object, const char* name, JsonPtr value) { set(object, name, value.release()); }

void put_known(json_t* object, const char* name, std::int64_t number) {
  set(object, name, number > 0 ? json_integer(number) : json_null());
}

void put_amount(json_t* object, const char* name, double number) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.6g", number);
  const double rounded = std::strtod(text.data(), nullptr);
  if (rounded == std::floor(rounded) && std::abs(rounded) < kMostInteger) {
    put(object, name, static_cast<std::int64_t>(rounded));
  } else {
    put(object, name, rounded);
  }
}

void append(json_t* array, JsonPtr value) {
  if (json_array_append_new(array, value.release()) != 0) throw std::bad_alloc();
}

std::string json_text(const json_t* value, std::size_t flags) {
  const std::unique_ptr<char, decltype(&std::free)> text(
      json_dumps(value, flags | JSON_REAL_PRECISION(15)), &std::free);
  if (text == nullptr) throw std::bad_alloc();
  return text.get();
}

std::string quoted_json(std::string_view text) {
  const JsonPtr value(json_string_of(text));
  return json_text(value.get(), JSON_ENCODE_ANY);
}

std::string without_nul(std::string_view json) {
  std::string safe;
  while (!json.empty()) {
    std::size_t length = json[0] == '\\' ? 2 : 1;  // so that "\\u0000" is not mistaken for a NUL
    if (json.starts_with("\\u0000")) {
      safe += "\\ufffd";
      length = 6;
    } else {
      safe += json.substr(0, length);
    }
    json.remove_prefix(std::min(length, json.size()));
  }
  return safe;
}

std::string json_for_terminal(const json_t* value) {
  std::string text = json_text(value, JSON_INDENT(1) | JSON_ENSURE_ASCII) + "\n";
  constexpr char kDelete = '\x7F';  // the one control character that Jansson does not escape
  for (std::size_t at = 0; (at = text.find(kDelete, at)) != std::string::npos;) {
    text.replace(at, 1, "\\u007f");
  }
  return text;
}

}  // namespace corvane
