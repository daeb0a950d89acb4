#include "platform/console.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "tests/support/in_child.h"
#include "tests/support/scratch_dir.h"

namespace corvane {
namespace {

using test::in_child;
using test::read_file;
using test::ScratchDir;

struct Console {
  const char* name;
  int descriptor;
  void (*write)(std::string_view text);
};

class ConsoleTest : public ::testing::TestWithParam<Console> {};

TEST_P(ConsoleTest, WritesAtOnce) {
  const ScratchDir scratch;
  EXPECT_EQ(in_child([&] {
              dup2(open(scratch("out").c_str(), O_WRONLY | O_CREAT, 0600), GetParam().descriptor);
              GetParam().write("said\n");
              return read_file(scratch("out")) == "said\n" ? 0 : 1;
            }),
            0);
}

TEST_P(ConsoleTest, WhatAClosedDescriptorDidNotTakeNeverTurnsUpInTheFileThatTakesItsNumber) {
  const ScratchDir scratch;
  EXPECT_EQ(
      in_child([&] {
        close(GetParam().descriptor);
        GetParam().write("lost\n");
        if (std::ferror(stdout) != 0 || std::ferror(stderr) != 0) return 3;
        if (open(scratch("file").c_str(), O_WRONLY | O_CREAT, 0600) != GetParam().descriptor) {
          return 2;
        }
        GetParam().write("said\n");
        std::fflush(nullptr);
        return read_file(scratch("file")) == "said\n" ? 0 : 1;
      }),
      0);
}

std::string name_of(const ::testing::TestParamInfo<Console>& tested) { return tested.param.name; }

INSTANTIATE_TEST_SUITE_P(Both, ConsoleTest,
                         ::testing::Values(Console{"Output", STDOUT_FILENO, write_console},
                                           Console{"Error", STDERR_FILENO, write_console_error}),
                         name_of);

}  // namespace
}  // namespace corvane
