#include "companions/alert/delivery/backoff.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace corvane::alert {

std::int64_t pause_after(std::int64_t failures, double chance) {
  const auto doublings = static_cast<double>(std::clamp<std::int64_t>(failures - 1, 0, 10));
  const double seconds = std::exp2(doublings) * (0.5 + chance);
  return std::clamp<std::int64_t>(std::llround(seconds), 1, kLongestPauseSeconds);
}

double chance() {
  thread_local std::minstd_rand generator{std::random_device{}()};
  return std::uniform_real_distribution<double>()(generator);  // from 0 to 1
}

}  // namespace corvane::alert
