// What the detection would have said, without changing anything.
#pragma once

#include <functional>
#include <string>

#include "companions/detect/judge.h"

namespace corvane::detect {

// Judges the backups of the last `days` days of the stored ones again, in their order, on a history
// of what came before, and gives what would have been reported: a line for each, or one JSON
// document. Throws sqlite_exception.
std::string backtest(const std::string& database, const Settings& settings, int days, bool json);

// How the backup of this key is judged by what came before it, as JSON; empty when there is none.
std::string explain(const std::string& database, const Settings& settings,
                    const std::string& unique_key);

}  // namespace corvane::detect
