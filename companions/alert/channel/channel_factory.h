// Makes the channel of a name.
#pragma once

#include <memory>
#include <string>

#include "companions/alert/channel/channel.h"
#include "companions/alert/channel/wakeup.h"
#include "companions/alert/settings_file.h"

namespace corvane::alert {

// The channel of that name. A channel that is not configured refuses every message. `stop` must
// outlive it.
std::unique_ptr<Channel> make_channel(const std::string& name, const Settings& settings,
                                      const std::string& master, const StopFlag& stop);

}  // namespace corvane::alert
