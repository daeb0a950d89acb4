#include "operator_tool/json.h"

#include <cmath>

#include "companions/common/json_text.h"
#include "companions/common/valid_utf8.h"

namespace corvane::ctl {

JsonPtr document(const char* command) {
  JsonPtr root(json_object());
  put(root.get(), "schema", std::int64_t{1});
  put(root.get(), "command", command);
  return root;
}

void put(json_t* object, const char* name, std::string_view text) {
  const std::string valid = valid_utf8(text);
  json_object_set_new(object, name, json_stringn(valid.data(), valid.size()));
}

void put(json_t* object, const char* name, const char* text) {
  put(object, name, std::string_view(text));
}

void put(json_t* object, const char* name, std::int64_t number) {
  json_object_set_new(object, name, json_integer(number));
}

void put(json_t* object, const char* name, double number) {
  json_object_set_new(object, name, std::isfinite(number) ? json_real(number) : json_null());
}

void put(json_t* object, const char* name, bool value) {
  json_object_set_new(object, name, json_boolean(value));
}

void put(json_t* object, const char* name, JsonPtr value) {
  json_object_set_new(object, name, value.release());
}

void put_known(json_t* object, const char* name, std::int64_t number) {
  json_object_set_new(object, name, number > 0 ? json_integer(number) : json_null());
}

void append(json_t* array, JsonPtr value) { json_array_append_new(array, value.release()); }

std::string text_member(const json_t* object, const char* name) {
  const char* text = json_string_value(json_object_get(object, name));
  return text == nullptr ? "" : text;
}

std::string pretty(const json_t* value) {
  std::string text = json_text(value, JSON_INDENT(1) | JSON_ENSURE_ASCII) + "\n";
  constexpr char kDelete = '\x7F';  // the one control character that Jansson does not escape
  for (std::size_t at = 0; (at = text.find(kDelete, at)) != std::string::npos;) {
    text.replace(at, 1, "\\u007f");
  }
  return text;
}

}  // namespace corvane::ctl
