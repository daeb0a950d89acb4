// Health and survey as members of a JSON document, the same in status and report.
#pragma once

#include <jansson.h>

#include "finding/stream_survey.h"
#include "operator_tool/ask/health.h"

namespace corvane::ctl {

void put_health(json_t* root, const Health& health);
void put_survey(json_t* root, const StreamSurvey& survey);

}  // namespace corvane::ctl
