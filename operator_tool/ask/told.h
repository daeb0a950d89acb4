// Which messages about an incident went to which channel.
#pragma once

#include <string>
#include <vector>

#include "companions/alert/delivery/outbox.h"
#include "operator_tool/options.h"

namespace corvane::ctl {

// In the order they were made. The alerts delete messages two days after every channel took them.
// Empty when they have no database, or one that cannot be read.
std::vector<alert::ToldMessage> read_told(const Options& options, const std::string& incident);

}  // namespace corvane::ctl
