// One message in place of many.
#pragma once

#include <cstdint>
#include <string>

#include "companions/alert/channel/message.h"
#include "companions/alert/state_database.h"

namespace corvane::alert {

// Fills in the words and details of the summary with this message id, from the messages that are
// folded into it for the channel: all of them as numbers, the most severe by name. Leaves the rest
// of `message` alone.
void write_summary(StateDatabase& state, std::int64_t id, const std::string& channel,
                   Message& message);

}  // namespace corvane::alert
