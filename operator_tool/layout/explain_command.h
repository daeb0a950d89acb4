// What explain prints, of an explanation that is known already.
#pragma once

#include <string>

#include "companions/detect/replay.h"
#include "operator_tool/terminal/terminal.h"

namespace corvane::ctl {

// The verdict and what it rests on, a line each, then the figures as a table.
std::string text_of(const detect::Explanation& judged, const Terminal& terminal, bool utc);

}  // namespace corvane::ctl
