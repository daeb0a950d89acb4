// One message for many.
#pragma once

#include <cstdint>
#include <string>

#include "companions/alert/channel/message.h"
#include "companions/alert/state_database.h"

namespace corvane::alert {

// Words and details of the summary with this message id, from what is folded into it for the
// channel: all of it in numbers, the most severe by name. The rest of the message is left alone.
void write_summary(StateDatabase& state, std::int64_t id, const std::string& channel,
                   Message& message);

}  // namespace corvane::alert
