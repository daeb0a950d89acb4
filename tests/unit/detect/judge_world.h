// Questions to the judge, put together figure by figure. The numbers are chosen so that shares and
// spreads come out exactly: with eps 5 the bounds are at 5 spreads of 0.2 octaves, a factor of 2
// for (files + 8) and (KB + 64), and at 5 spreads of 0.1 of a share.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "companions/detect/judge.h"
#include "tests/unit/detect/detect_world.h"

namespace corvane::detect {

// 24 + 8 files, 936 + 64 KB, of which 100 are new.
inline constexpr Figures kUsual{24, 936, 100, 2, 0};
// Deviates by half a spread of 2 octaves, which alone is no matter.
inline constexpr double kOneSecond = 1;

class JudgeTest : public testing::Test {
 protected:
  JudgeTest() {
    settings_.eps = 5;
    settings_.stream.min_observations = 8;
  }

  static void fill(std::vector<Observation>& into, int count, const Figures& figures) {
    for (int i = 0; i < count; ++i) {
      into.push_back(observed(static_cast<int>(into.size()), figures));
    }
  }

  Verdict judge(const Observation& record) {
    Question question;
    question.record = record;
    question.incremental = incremental_;
    question.history = history_;
    question.by_people = by_people_;
    question.held = held_;
    question.full_backups = full_backups_;
    question.same_night = same_night_ ? &*same_night_ : nullptr;
    question.same_night_is_normal = same_night_is_normal_;
    return judge_.judge(question, settings_);
  }
  // On the day after the history.
  Verdict judge(const Figures& figures) {
    return judge(observed(static_cast<int>(history_.size()), figures));
  }
  Outcome outcome(const Figures& figures) { return judge(figures).outcome; }

  Judge judge_;
  Settings settings_;
  bool incremental_ = false;
  std::vector<Observation> history_;
  std::vector<Observation> by_people_;
  std::vector<Observation> held_;
  std::vector<Observation> full_backups_;
  std::optional<Observation> same_night_;
  bool same_night_is_normal_ = false;
};

}  // namespace corvane::detect
