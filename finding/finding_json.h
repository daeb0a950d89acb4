// A finding as JSON: ANOMALY_DETAILS, and part of what the programs print. docs/detection.md has
// the schema.
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

// Takes whatever is there and of the right type and within bounds; null gives an empty finding.
// A severity that is missing is kMajor.
Finding from_json(const json_t* details);

// ANOMALY_DETAILS as JSON; null when they are no JSON object or too long to be the detection's.
JsonPtr parse_details(std::string_view details);

// The note that the change of an incident became the new normal, added to the details of its first
// backup. What is no JSON object comes back as it is.
std::string with_adoption(const std::string& details, const BackupReference& adopted);

}  // namespace corvane
