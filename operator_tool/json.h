// JSON documents as every command prints them with --json.
#pragma once

#include <jansson.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/c_handles.h"

namespace corvane::ctl {

// An object with the members "schema" (1) and "command".
JsonPtr document(const char* command);

// Set a member of an object. Texts become valid UTF-8; numbers that are not finite become null.
void put(json_t* object, const char* name, std::string_view text);
void put(json_t* object, const char* name, const char* text);
void put(json_t* object, const char* name, std::int64_t number);
void put(json_t* object, const char* name, double number);
void put(json_t* object, const char* name, bool value);
void put(json_t* object, const char* name, JsonPtr value);
// Null unless it is above 0: a time, or another number that is not always known.
void put_known(json_t* object, const char* name, std::int64_t number);
void append(json_t* array, JsonPtr value);

// A member that is a text; empty when there is none of that name.
std::string text_member(const json_t* object, const char* name);

// Indented, ended by a line end, of ASCII characters that steer no terminal.
std::string pretty(const json_t* value);

}  // namespace corvane::ctl
