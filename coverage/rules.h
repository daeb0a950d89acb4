// What the configuration says of healing.
#pragma once

#include <cstdint>
#include <string>

#include "config/configuration.h"
#include "coverage/healer.h"

namespace corvane::coverage {

HealRules rules_of(Configuration& config, std::int64_t now);

// Why nothing is healed, a part of a sentence; empty: it is. With a malformed file it is not known
// where rows belong. Without a file all settings have their defaults.
std::string why_off(Configuration& config, const std::string& path);

// Whether the service would let a companion run. A malformed file counts as one that disables all.
bool is_companion_wanted(const std::string& config_path, const std::string& companion);

}  // namespace corvane::coverage
