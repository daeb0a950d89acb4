#include "platform/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

namespace corvane {
namespace {

int opened() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

bool is_open(int number) { return fcntl(number, F_GETFD) != -1; }

TEST(Descriptor, IsClosedWithItsOwner) {
  const int number = opened();
  {
    const Descriptor owner(number);
    EXPECT_TRUE(owner.is_open());
    EXPECT_EQ(owner.get(), number);
    EXPECT_TRUE(is_open(number));
  }
  EXPECT_FALSE(is_open(number));
}

TEST(Descriptor, OfACallThatFailedIsNotOpen) {
  EXPECT_FALSE(Descriptor(-1).is_open());
  EXPECT_FALSE(Descriptor().is_open());
  EXPECT_EQ(Descriptor().get(), -1);
}

TEST(Descriptor, ThatIsNotOpenLeavesErrnoAlone) {
  errno = ENOENT;
  { const Descriptor none(-1); }
  EXPECT_EQ(errno, ENOENT);
}

TEST(Descriptor, GoesToItsNewOwner) {
  const int number = opened();
  Descriptor former(number);
  {
    const Descriptor owner(std::move(former));
    EXPECT_EQ(owner.get(), number);
    former.reset();  // NOLINT(bugprone-use-after-move): it owns nothing any more
    EXPECT_TRUE(is_open(number));
  }
  EXPECT_FALSE(is_open(number));
}

TEST(Descriptor, TakesAnotherOneInsteadOfItsOwn) {
  const int number = opened();
  Descriptor owner(number);
  const int other = opened();
  owner.reset(other);
  EXPECT_FALSE(is_open(number));
  EXPECT_EQ(owner.get(), other);
  EXPECT_TRUE(is_open(other));
  owner.reset();
  EXPECT_FALSE(is_open(other));
  EXPECT_FALSE(owner.is_open());
}

}  // namespace
}  // namespace corvane
