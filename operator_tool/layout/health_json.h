// Health and survey as members of a JSON document, the same in status and report.
#pragma once

#include <jansson.h>

#include "finding/stream_survey.h"
#include "health/problems.h"

namespace corvane::ctl {

void put_health(json_t* root, const health::Health& health);
// The member "problem_list": level, name and words of each problem.
void put_problems(json_t* root, const std::vector<health::Problem>& problems);
// The member "healing".
void put_healing(json_t* root, const health::LedgerHealth& ledger);
void put_survey(json_t* root, const StreamSurvey& survey);

}  // namespace corvane::ctl
