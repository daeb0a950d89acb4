// From a verdict to what is said of the backup.
#pragma once

#include <string>

#include "companions/detect/model.h"
#include "finding/finding.h"

namespace corvane::detect {

// Asks the model for the incident, the last good backup, and whether a later one was accepted.
Finding finding_of(const Backup& backup, const Verdict& verdict, Model& model);

// "learning", "inconclusive", "normal", "adopted", "anomalous".
const char* name_of(Outcome outcome);

// "learning 12 of 30" for a backup that is not judged yet, else the outcome's name.
std::string words_for(const Verdict& verdict, const Settings& settings);

}  // namespace corvane::detect
