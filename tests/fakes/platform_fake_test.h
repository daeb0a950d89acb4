// Fixture of tests that use the platform fake: each test begins with a fresh state and leaves none
// of its hooks behind.
#pragma once

#include <gtest/gtest.h>

#include "tests/fakes/platform_fake.h"

class PlatformFake : public ::testing::Test {
 protected:
  void SetUp() override { corvane::fake::reset(); }
  void TearDown() override { corvane::fake::reset(); }

  corvane::fake::State& fake = corvane::fake::state();
};
