// ANOMALY_DETAILS: what an anomaly is, as JSON for programs and in plain words for people. The
// schema is in docs/detection.md.
#pragma once

#include <cstdint>
#include <string>

#include "companions/detect/backup.h"
#include "companions/detect/judge.h"

namespace corvane::detect {

// Derived from the row's key, so that a row that is judged again is the same anomaly.
std::string anomaly_id(const std::string& unique_key);
std::string incident_id(const std::string& first_unique_key);
// The row's key again; empty when `id` is none of ours.
std::string unique_key_of(const std::string& anomaly_id);

struct LastGood {
  std::string backup_id;  // empty: none known
  std::int32_t time = 0;
};

std::string details_of(const Backup& backup, const Verdict& verdict, const std::string& incident,
                       const LastGood& last_good);

// `details` with the note that the change became the new normal with this backup. What is no JSON
// object comes back as it is.
std::string with_adoption(const std::string& details, const Backup& adopted_with);

// One sentence: what was unusual, and what may have happened.
std::string summary_of(const Backup& backup, const Verdict& verdict);

const char* outcome_name(Outcome outcome);

// "learning 12 of 30" for a stream that is not judged yet, else the outcome's name.
std::string state_of(const Verdict& verdict, const Settings& settings);

}  // namespace corvane::detect
