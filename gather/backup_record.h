// The backup record that every source of backups produces, and how to make one from JSON.
#pragma once

#include <jansson.h>

#include <map>
#include <string>
#include <string_view>

#include "util/to_int.h"  // how all readers of a record read its numbers

namespace corvane {

// Name to text, for example "clientName" to "web01". Which names a record has depends on its
// source: the REST interface's (clientName, policyName, backupTime, kbytes, jobId ...), the
// image-list tool's (client_name, backupid ...) or the jobs tool's (JobId, StartTime ...).
using BackupRecord = std::map<std::string, std::string>;

// The rule by which all readers turn a JSON value into text: a string as it is, an integer in
// decimal, a real with six significant digits, true "1", false "0", anything else (null, objects,
// arrays, no value) "".
std::string json_value_to_text(const json_t* value);

// Calls visit(name, value) for each member in document order; anything but an object has none.
template <typename Visit>
void for_each_member(json_t* object, Visit visit) {
  for (void* member = json_object_iter(object); member != nullptr;
       member = json_object_iter_next(object, member)) {
    visit(std::string_view(json_object_iter_key(member)), json_object_iter_value(member));
  }
}

// The text under `key`, or `fallback` if the record has none. Inserts nothing.
const std::string& text_or(const BackupRecord& record, const std::string& key,
                           const std::string& fallback);

}  // namespace corvane
