// What the alerts have told whom of an incident.
#pragma once

#include <string>
#include <vector>

#include "companions/alert/delivery/outbox.h"
#include "operator_tool/options.h"

namespace corvane::ctl {

// In the order they were made. The alerts forget messages that everybody took after two days.
// Empty when they have no database, or one that cannot be read.
std::vector<alert::ToldMessage> read_told(const Options& options, const std::string& incident);

}  // namespace corvane::ctl
