#include "platform/credentials.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/support/in_child.h"
#include "tests/support/scratch_dir.h"

using corvane::credentials_in;
using corvane::key_refusal;
using corvane::stamp_of;
using corvane::test::in_child;
using corvane::test::ScratchDir;
using corvane::test::write_file;

namespace {

class KeyFile : public ::testing::Test {
 protected:
  void SetUp() override { write_file(path, "key"); }

  void set_mode(unsigned mode) {
    std::filesystem::permissions(path, static_cast<std::filesystem::perms>(mode));
  }

  ScratchDir scratch;
  const std::string path = scratch("host.key");
};

}  // namespace

TEST(Credentials, HaveTheProductsFileNames) {
  const auto credentials = credentials_in("/usr/tessel/var/credentials", "service");
  EXPECT_EQ(credentials.authorities, "/usr/tessel/var/credentials/ca.pem");
  EXPECT_EQ(credentials.certificate, "/usr/tessel/var/credentials/service.pem");
  EXPECT_EQ(credentials.key, "/usr/tessel/var/credentials/service.key");
}

TEST_F(KeyFile, OwnersRightsAreAccepted) {
  for (const unsigned mode : {0600U, 0400U, 0700U}) {
    set_mode(mode);
    EXPECT_EQ(key_refusal(path), "") << std::oct << mode;
  }
}

TEST_F(KeyFile, AnyRightOfGroupOrOthersIsRefused) {
  for (const unsigned mode : {0640U, 0604U, 0644U, 0620U, 0602U, 0610U, 0601U, 0666U}) {
    set_mode(mode);
    EXPECT_EQ(key_refusal(path),
              "private key " + path + " is refused: others than its owner have access to it")
        << std::oct << mode;
  }
}

TEST_F(KeyFile, LinkIsJudgedByWhatItPointsTo) {
  set_mode(0644);
  std::filesystem::create_symlink(path, scratch("link"));
  EXPECT_NE(key_refusal(scratch("link")), "");
  set_mode(0600);
  EXPECT_EQ(key_refusal(scratch("link")), "");
}

TEST_F(KeyFile, AnotherUsersKeyIsRefused) {
  set_mode(0600);
  if (geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
  ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
  EXPECT_EQ(key_refusal(path), "private key " + path + " is refused: it belongs to another user");
}

TEST_F(KeyFile, AnOrdinaryUserMayUseItsOwnAndRoots) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  constexpr uid_t kUser = 65534;
  ASSERT_EQ(chmod(scratch.path().c_str(), 0711), 0);
  for (const uid_t owner : {kUser, uid_t{0}}) {
    set_mode(0600);
    ASSERT_EQ(chown(path.c_str(), owner, owner), 0);
    EXPECT_EQ(in_child([this] { return seteuid(kUser) == 0 && key_refusal(path).empty() ? 0 : 1; }),
              0)
        << owner;
  }
}

TEST_F(KeyFile, MissingKeyIsLeftToItsReader) { EXPECT_EQ(key_refusal(scratch("missing")), ""); }

TEST_F(KeyFile, StampChangesWithEachFile) {
  for (const char* name : {"ca.pem", "host.pem", "host.key"}) {
    const auto credentials = credentials_in(scratch(), "host");
    const auto before = stamp_of(credentials);
    EXPECT_EQ(stamp_of(credentials), before);
    write_file(scratch("new"), "key");  // of the same size
    std::filesystem::rename(scratch("new"), scratch(name));
    EXPECT_NE(stamp_of(credentials), before) << name;
  }
}
