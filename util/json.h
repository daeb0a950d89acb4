// JSON documents: reading, building and writing them.
#pragma once

#include <jansson.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/c_handles.h"

namespace corvane {

// --- Reading ---

// Null if the text is longer than `most` bytes or not a JSON object. NUL characters are allowed.
JsonPtr parse_json_object(std::string_view text, std::size_t most);

// A member that is a text, an integer, a number. If it is missing or of another type: empty, 0,
// false with `number` 0.
std::string text_member(const json_t* object, const char* name);
std::int64_t integer_member(const json_t* object, const char* name);
bool read_number(const json_t* object, const char* name, double& number);

// --- Making: everything throws std::bad_alloc ---

// Set a member of an object. Texts become valid UTF-8; infinity and NaN become null.
void put(json_t* object, const char* name, std::string_view text);
void put(json_t* object, const char* name, const char* text);
void put(json_t* object, const char* name, std::int64_t number);
void put(json_t* object, const char* name, double number);
void put(json_t* object, const char* name, bool value);
void put(json_t* object, const char* name, JsonPtr value);
// Null unless it is above 0: for times and other numbers that may be unknown.
void put_known(json_t* object, const char* name, std::int64_t number);
// With six significant digits, whole numbers as integers, for people.
void put_amount(json_t* object, const char* name, double number);
void append(json_t* array, JsonPtr value);

// --- Writing: everything throws std::bad_alloc ---

// `flags` as for json_dumps(). Numbers have up to 15 significant digits, so rounded numbers stay
// short.
std::string json_text(const json_t* value, std::size_t flags = JSON_COMPACT);

// A text as it appears in a JSON document, with quotation marks.
std::string quoted_json(std::string_view text);

// A JSON text without escaped NUL characters, which many programs reject or stop at.
std::string without_nul(std::string_view json);

// Indented, with a line end, of ASCII characters that do not control a terminal.
std::string json_for_terminal(const json_t* value);

}  // namespace corvane
