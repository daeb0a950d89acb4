// Makes the finding out of a verdict.
#pragma once

#include <string>

#include "companions/detect/model.h"
#include "finding/finding.h"

namespace corvane::detect {

// Asks the model for the incident, the last good backup, and the first accepted backup after it.
Finding finding_of(const Backup& backup, const Verdict& verdict, Model& model);

// "learning", "inconclusive", "normal", "adopted", "anomalous".
const char* name_of(Outcome outcome);

// "learning 12 of 30" for a stream that is still learning, else the outcome's name.
std::string words_for(const Verdict& verdict, const Settings& settings);

}  // namespace corvane::detect
