// A finding as JSON: ANOMALY_DETAILS, and part of what the programs print. The schema is in
// docs/detection.md.
#pragma once

#include <jansson.h>

#include <string>
#include <string_view>

#include "finding/finding.h"
#include "platform/c_handles.h"

namespace corvane {

JsonPtr to_json(const Finding& finding);

// Sets the seven members of a stream: "client" to "destination".
void put_stream(json_t* into, const StreamKey& key);

// Reads whatever is there, of the right type and within bounds. Null gives an empty finding. A
// missing severity is kMajor.
Finding from_json(const json_t* details);

// ANOMALY_DETAILS as JSON; null when they are not a JSON object, or too long to be the detection's.
JsonPtr parse_details(std::string_view details);

// The details of an incident's first backup, with the note that its change was adopted. Anything
// but a JSON object is returned unchanged.
std::string with_adoption(const std::string& details, const BackupReference& adopted);

}  // namespace corvane
