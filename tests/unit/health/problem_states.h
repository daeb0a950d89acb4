// One state, everything else being well: the only problem that there is.
#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "tests/unit/health/healthy.h"

namespace corvane::health {

struct State {
  const char* what;
  std::function<void(Health&)> make;
  std::string said;  // "LEVEL NAME: WORDS", or "OK"
};

inline std::string whole(const Health& health) {
  std::string said;
  for (const Problem& problem : problems_of(health)) {
    if (!said.empty()) said += "; ";
    said += std::string(name_of(problem.level)) + " " + problem.name + ": " + problem.words;
  }
  return said.empty() ? "OK" : said;
}

inline void expect_each(const std::vector<State>& states) {
  for (const State& state : states) {
    Health health = good();
    state.make(health);
    EXPECT_EQ(whole(health), state.said) << state.what;
  }
}

}  // namespace corvane::health
