// What status prints, of values that are known already.
#pragma once

#include <string>

#include "health/health.h"
#include "operator_tool/ask/picture.h"
#include "operator_tool/layout/check.h"
#include "operator_tool/options.h"
#include "operator_tool/terminal/terminal.h"

namespace corvane::ctl {

struct Status {
  health::Health health;
  Picture picture;

  CheckResult verdict(const health::Thresholds& thresholds = {}) const;
};

// The status (OK, WARNING, CRITICAL) with all problems, then one line for each subject. Of the
// options the time zone and the name of the database.
std::string text_of(const Status& status, const Options& options, const Terminal& terminal);

}  // namespace corvane::ctl
