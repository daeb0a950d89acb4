#include "platform/service_account.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/securebits.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/in_child.h"
#include "tests/support/scratch_dir.h"

using corvane::take_account;
using corvane::take_configured_account;
using corvane::take_owner;
using corvane::test::in_child;
using corvane::test::ScratchDir;
using corvane::test::write_file;

namespace {

constexpr const char* kAccount = "nobody";
constexpr const char* kUnknown = "cv-no-such-account";

class AsRoot : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "only root can take another account";
    const passwd* entry = getpwnam(kAccount);
    ASSERT_NE(entry, nullptr);
    user = entry->pw_uid;
    group = entry->pw_gid;
  }

  // This process is the account's, and nothing more.
  void expect_account_taken() const {
    uid_t real_user = 0, effective_user = 0, saved_user = 0;
    gid_t real_group = 0, effective_group = 0, saved_group = 0;
    getresuid(&real_user, &effective_user, &saved_user);
    getresgid(&real_group, &effective_group, &saved_group);
    EXPECT_EQ(real_user, user);
    EXPECT_EQ(effective_user, user);
    EXPECT_EQ(saved_user, user);
    EXPECT_EQ(real_group, group);
    EXPECT_EQ(effective_group, group);
    EXPECT_EQ(saved_group, group);
    std::vector<gid_t> groups(static_cast<std::size_t>(getgroups(0, nullptr)));
    getgroups(static_cast<int>(groups.size()), groups.data());
    for (const gid_t one : groups) EXPECT_NE(one, 0U) << "root's group is left";
    EXPECT_NE(setuid(0), 0);
    EXPECT_NE(seteuid(0), 0);
    EXPECT_NE(setgid(0), 0);
    EXPECT_LT(open("/etc/shadow", O_RDONLY), 0);
  }

  std::string config_with(const std::string& content) {
    write_file(scratch("corvane.conf"), content);
    return scratch("corvane.conf");
  }

  uid_t user = 0;
  gid_t group = 0;
  ScratchDir scratch;
};

}  // namespace

TEST_F(AsRoot, TheOwnerOfAFileIsTaken) {
  write_file(scratch("file"), "");
  ASSERT_EQ(chown(scratch("file").c_str(), user, group), 0);
  EXPECT_EQ(in_child([this] {
              EXPECT_EQ(setgroups(0, nullptr), 0);
              EXPECT_EQ(take_owner(scratch("file")), "");
              expect_account_taken();
              return 0;
            }),
            0);
}

TEST_F(AsRoot, NobodyIsTakenForAFileOfRootOrNone) {
  write_file(scratch("file"), "");
  EXPECT_EQ(take_owner(scratch("file")), "");
  EXPECT_EQ(take_owner(scratch("none")), "");
  EXPECT_EQ(geteuid(), 0U);
}

TEST_F(AsRoot, AnOwnerWithoutANameIsRefused) {
  write_file(scratch("file"), "");
  ASSERT_EQ(chown(scratch("file").c_str(), 3'999'999, 0), 0);
  EXPECT_EQ(take_owner(scratch("file")),
            "cannot run as the owner of " + scratch("file") + ": no such account");
}

TEST_F(AsRoot, AccountIsTakenForGood) {
  EXPECT_EQ(in_child([this] {
              const gid_t roots_groups[] = {0, 1, 2};
              EXPECT_EQ(setgroups(3, roots_groups), 0);
              EXPECT_EQ(take_account(kAccount), "");
              expect_account_taken();
              return 0;
            }),
            0);
}

// As a program is that was started with its rights kept across changes of account.
TEST_F(AsRoot, RightToBecomeRootAgainIsAReason) {
  EXPECT_EQ(in_child([] {
              EXPECT_EQ(prctl(PR_SET_SECUREBITS, SECBIT_NO_SETUID_FIXUP), 0);
              EXPECT_EQ(take_account(kAccount), "root could be regained");
              return 0;
            }),
            0);
}

TEST_F(AsRoot, UnknownAccountIsAReason) {
  EXPECT_EQ(in_child([] {
              EXPECT_EQ(take_account(kUnknown), "no such account");
              return 0;
            }),
            0);
}

TEST_F(AsRoot, RootMayBeTheAccount) {
  EXPECT_EQ(in_child([] {
              EXPECT_EQ(take_account("root"), "");
              EXPECT_EQ(getuid(), 0U);
              return 0;
            }),
            0);
}

TEST_F(AsRoot, ConfiguredAccountIsTaken) {
  const std::string path = config_with("[host]\nservice_account=" + std::string(kAccount) + "\n");
  EXPECT_EQ(in_child([&] {
              EXPECT_EQ(take_configured_account(path), "");
              expect_account_taken();
              return 0;
            }),
            0);
}

TEST_F(AsRoot, ConfiguredAccountThatDoesNotExistIsNamedInTheReason) {
  const std::string path = config_with("[host]\nservice_account=" + std::string(kUnknown) + "\n");
  EXPECT_EQ(in_child([&] {
              EXPECT_EQ(take_configured_account(path),
                        "cannot run as service account 'cv-no-such-account': no such account");
              return 0;
            }),
            0);
}

TEST_F(AsRoot, WithoutAConfiguredAccountTheProcessStaysWhoItIs) {
  const std::string path = config_with("[domain]\nservers=a;b\n");
  EXPECT_EQ(in_child([&] {
              EXPECT_EQ(take_configured_account(path), "");
              EXPECT_EQ(take_configured_account(scratch("missing")), "");
              EXPECT_EQ(geteuid(), 0U);
              return 0;
            }),
            0);
}

TEST_F(AsRoot, FileThatCannotTellTheAccountIsAReason) {
  const std::string path = config_with("[domain]\nbroken line\n[host]\nservice_account=nobody\n");
  EXPECT_EQ(take_configured_account(path), "cannot read the service account from " + path);
  EXPECT_EQ(take_configured_account(scratch()),
            "cannot read the service account from " + scratch());
}

TEST(ServiceAccount, OrdinaryUserStaysWhoHeIs) {
  const ScratchDir scratch;
  write_file(scratch("corvane.conf"), "[host]\nservice_account=root\n");
  EXPECT_EQ(in_child([&] {
              constexpr uid_t kOrdinary = 65534;
              if (geteuid() == 0 && setuid(kOrdinary) != 0) return 90;
              const uid_t user = geteuid();
              EXPECT_EQ(take_configured_account(scratch("corvane.conf")), "");
              EXPECT_EQ(geteuid(), user);
              return 0;
            }),
            0);
}
