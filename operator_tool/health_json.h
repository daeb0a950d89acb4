// Health and survey as members of a JSON document: in status and report the same.
#pragma once

#include <jansson.h>

#include "operator_tool/health.h"
#include "operator_tool/survey.h"

namespace corvane::ctl {

void put_health(json_t* root, const Health& health);
void put_survey(json_t* root, const Survey& survey);

}  // namespace corvane::ctl
