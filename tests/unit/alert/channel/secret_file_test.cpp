#include "companions/alert/channel/secret_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "tests/support/descriptors.h"
#include "tests/support/error_of.h"
#include "tests/support/scratch_dir.h"

namespace corvane::alert {
namespace {

struct stat file_of(uid_t owner, mode_t mode) {
  struct stat file {};
  file.st_uid = owner;
  file.st_mode = mode;
  return file;
}

TEST(WhyNotSecret, TrustsAFileOfTheUserOrRoot) {
  for (const mode_t mode : {0600U, 0400U, 0700U, 0000U}) {
    EXPECT_EQ(why_not_secret(file_of(7, S_IFREG | mode), 7), "");
    EXPECT_EQ(why_not_secret(file_of(0, S_IFREG | mode), 7), "");
  }
}

TEST(WhyNotSecret, RefusesAFileOfAnotherUser) {
  for (const auto& [owner, user] : {std::pair{8U, 7U}, {6U, 7U}, {7U, 0U}, {1U, 0U}}) {
    EXPECT_EQ(why_not_secret(file_of(owner, S_IFREG | 0600), user), "it belongs to another user");
  }
}

TEST(WhyNotSecret, RefusesAFileThatOthersHaveAccessTo) {
  for (const mode_t mode : {0640U, 0620U, 0610U, 0604U, 0602U, 0601U}) {
    EXPECT_EQ(why_not_secret(file_of(7, S_IFREG | mode), 7),
              "other users have access to it; set its mode to 0600")
        << mode;
  }
}

TEST(WhyNotSecret, RefusesWhatIsNotAFile) {
  for (const mode_t type : {S_IFDIR, S_IFIFO, S_IFSOCK, S_IFCHR}) {
    EXPECT_EQ(why_not_secret(file_of(7, type | 0600U), 7), "it is not a regular file");
  }
}

class SecretFile : public ::testing::Test {
 protected:
  std::string read(const std::string& content, mode_t mode = 0600) const {
    test::write_file(path, content);
    chmod(path.c_str(), mode);
    return read();
  }
  std::string read() const {
    try {
      return "read: " + read_secret(path);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
  }
  std::string refused(const std::string& why) const {
    return "secret file " + path + " cannot be used: " + why;
  }

  const test::ScratchDir directory;
  const std::string path = directory("secret");
};

TEST_F(SecretFile, IsReadWithoutItsLineEnd) {
  EXPECT_EQ(read("a secret "), "read: a secret ");
  EXPECT_EQ(read("a\nsecret\n"), "read: a\nsecret");
  EXPECT_EQ(read("a secret\r\n"), "read: a secret");
  EXPECT_EQ(read("a secret\r"), "read: a secret");
  EXPECT_EQ(read("a secret\n\n"), "read: a secret\n");
}

TEST_F(SecretFile, HasOneByteTo4KiB) {
  EXPECT_EQ(read(""), refused("it is empty"));
  EXPECT_EQ(read("\r\n"), refused("it is empty"));
  EXPECT_EQ(read("x"), "read: x");
  const std::string most(4096, 'x');
  EXPECT_EQ(read(most), "read: " + most);
  EXPECT_EQ(read(most + "x"), refused("it is longer than 4 KiB"));
}

TEST_F(SecretFile, IsRefusedForWhatTheSystemSaysOfIt) {
  EXPECT_EQ(read(), refused("No such file or directory"));
  EXPECT_EQ(read("x", 0640), refused("other users have access to it; set its mode to 0600"));
  std::filesystem::remove(path);
  std::filesystem::create_directory(path);
  EXPECT_EQ(read(), refused("it is not a regular file"));
}

TEST_F(SecretFile, ThatCannotBeReadIsRefused) {
  // A regular file of this user; nothing is at the address 0.
  EXPECT_EQ(test::error_of([] { read_secret("/proc/self/mem"); }),
            "secret file /proc/self/mem cannot be used: Input/output error");
}

TEST_F(SecretFile, ThatIsAPipeIsNotWaitedFor) {
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(read(), refused("it is not a regular file"));
}

TEST_F(SecretFile, OfAnotherUserIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
  test::write_file(path, "x");
  chmod(path.c_str(), 0600);
  ASSERT_EQ(chown(path.c_str(), 12345, 12345), 0);
  EXPECT_EQ(read(), refused("it belongs to another user"));
}

TEST_F(SecretFile, IsClosedAgain) {
  const int next = test::lowest_free_descriptor();
  read("x");
  read("");
  EXPECT_EQ(test::lowest_free_descriptor(), next);
}

}  // namespace
}  // namespace corvane::alert
