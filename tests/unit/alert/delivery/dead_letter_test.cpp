#include "companions/alert/delivery/dead_letter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/error_of.h"
#include "tests/support/file_creation_mask.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/scratch_dir.h"

namespace corvane::alert {
namespace {

using test::error_of;

class DeadLetterTest : public ::testing::Test {
 protected:
  static Delivery letter(const std::string& client) {
    Delivery delivery;
    delivery.message = 7;
    delivery.channel = "mail";
    delivery.reason = "refused";
    delivery.attempts = 12;
    delivery.content.client = client;
    return delivery;
  }
  // The line that the letter becomes.
  static std::string line(const std::string& client) {
    return R"({"channel":"mail","reason":"refused","attempts":12,"given_up":1700,"message":)" +
           document_of(letter(client).content) + "}\n";
  }
  void append(const std::vector<Delivery>& letters) { DeadLetterFile(path).append(letters, 1700); }

  test::ScratchDir directory;
  std::string path = directory("letters");
};

TEST_F(DeadLetterTest, IsOneJsonObjectOnEachLine) {
  append({letter("a"), letter("b")});
  EXPECT_EQ(test::read_file(path), line("a") + line("b"));
  append({letter(std::string("c\0\xFF", 3))});
  EXPECT_EQ(test::read_file(path).substr((line("a") + line("b")).size()),
            line(std::string("c\0\xFF", 3)));
  EXPECT_EQ(test::read_file(path).find("\\u0000"), std::string::npos);
}

TEST_F(DeadLetterTest, IsForItsOwnerOnly) {
  {
    const test::FileCreationMask none(0);
    append({});
  }
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
  EXPECT_EQ(status.st_size, 0);
}

TEST_F(DeadLetterTest, IsLockedWhileItLives) {
  const auto can_lock = [&] {
    const int other = open(path.c_str(), O_RDONLY);
    const bool locked = flock(other, LOCK_EX | LOCK_NB) == 0;
    close(other);
    return locked;
  };
  {
    const DeadLetterFile file(path);
    EXPECT_FALSE(can_lock());
  }
  EXPECT_TRUE(can_lock());
}

TEST_F(DeadLetterTest, ClearEmptiesIt) {
  append({letter("a")});
  const DeadLetterFile file(path);
  file.clear();
  EXPECT_EQ(test::read_file(path), "");
  file.append({letter("b")}, 1700);
  EXPECT_EQ(test::read_file(path), line("b"));
}

TEST_F(DeadLetterTest, IsUnchangedWhenTheDiskIsFull) {
  append({letter("a")});
  {
    const test::FileSizeLimit limit(line("a").size() + 10);
    EXPECT_EQ(error_of([&] { append({letter("b")}); }), path + ": No space left on device");
  }
  EXPECT_EQ(test::read_file(path), line("a"));
  {
    const test::FileSizeLimit limit(line("a").size());
    EXPECT_EQ(error_of([&] { append({letter("b")}); }), path + ": File too large");
  }
  append({letter("c")});
  EXPECT_EQ(test::read_file(path), line("a") + line("c"));
}

TEST_F(DeadLetterTest, SaysWhatFailed) {
  EXPECT_EQ(error_of([] { DeadLetterFile("/nowhere/letters"); }),
            "/nowhere/letters: No such file or directory");
  // Writing takes it, bringing it to the disk does not.
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
  EXPECT_EQ(error_of([&] { append({letter("a")}); }), path + ": No space left on device");
  EXPECT_EQ(error_of([&] { append({}); }), path + ": No space left on device");
  EXPECT_EQ(error_of([&] { DeadLetterFile(path).clear(); }), path + ": Invalid argument");
  close(reader);
}

}  // namespace
}  // namespace corvane::alert
