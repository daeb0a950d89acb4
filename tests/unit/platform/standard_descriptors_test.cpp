#include "platform/standard_descriptors.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/in_child.h"

using corvane::StandardDescriptorsFilled;
using corvane::test::in_child;

TEST(StandardDescriptors, FreeOnesAreHeldAndGivenBack) {
  EXPECT_EQ(in_child([] {
              const int out = dup(1);  // for the expectations' messages
              close(0);
              close(2);
              int opened = -1;
              int flags = -1;
              {
                const StandardDescriptorsFilled filled;
                opened = open("/dev/null", O_RDONLY);
                flags = fcntl(2, F_GETFD);
              }
              EXPECT_GT(opened, 2);
              EXPECT_EQ(flags, FD_CLOEXEC);
              EXPECT_LT(fcntl(0, F_GETFD), 0);
              EXPECT_LT(fcntl(2, F_GETFD), 0);
              EXPECT_GE(fcntl(1, F_GETFD), 0) << "the caller's own stays";
              dup2(out, 1);
              return 0;
            }),
            0);
}
