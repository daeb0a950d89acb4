#include "coverage/log_follower.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <filesystem>

#include "tests/support/scratch_dir.h"

namespace corvane::coverage {
namespace {

using Lines = std::vector<std::string>;

class LogFollowerTest : public testing::Test {
 protected:
  void append(const std::string& name, const std::string& text) {
    std::ofstream(directory_(name), std::ios::app | std::ios::binary) << text;
  }
  void move(const std::string& from, const std::string& to) {
    std::filesystem::rename(directory_(from), directory_(to));
  }
  // As logrotate does.
  void compress(const std::string& name) {
    const std::string text = test::read_file(directory_(name));
    const gzFile file = gzopen(directory_(name + ".gz").c_str(), "wb");
    gzwrite(file, text.data(), static_cast<unsigned>(text.size()));
    gzclose(file);
    std::filesystem::remove(directory_(name));
  }
  Lines read() {
    Lines lines;
    is_complete_ = LogFollower(directory_("log"))
                       .read(
                           position_, [&](std::string_view line) { lines.emplace_back(line); },
                           [&] { lines.emplace_back("(missing)"); });
    return lines;
  }

  test::ScratchDir directory_;
  LogPosition position_;
  bool is_complete_ = true;
};

TEST_F(LogFollowerTest, ReadsEachLineOnce) {
  append("log", "1 a\n2 b\n3 half");
  EXPECT_EQ(read(), (Lines{"1 a", "2 b"}));
  EXPECT_EQ(position_.first_line, "1 a");
  EXPECT_EQ(position_.offset, 8);
  EXPECT_EQ(read(), Lines{});
  append("log", " whole\n\n4 d\n");
  EXPECT_EQ(read(), (Lines{"3 half whole", "", "4 d"}));
  EXPECT_TRUE(is_complete_);
}

TEST_F(LogFollowerTest, FollowsARotation) {
  append("log", "1 a\n2 b\n");
  read();
  append("log", "3 c\n");
  move("log", "log.1");
  append("log", "4 d\n");
  EXPECT_EQ(read(), (Lines{"3 c", "4 d"}));
  EXPECT_TRUE(is_complete_);
  append("log", "5 e\n");
  EXPECT_EQ(read(), (Lines{"5 e"}));
}

TEST_F(LogFollowerTest, FollowsIntoACompressedFile) {
  append("log", "1 a\n2 b\n");
  read();
  append("log", "3 c\n");
  move("log", "log-20260131");
  compress("log-20260131");
  append("log", "4 d\n");
  EXPECT_EQ(read(), (Lines{"3 c", "4 d"}));
  EXPECT_TRUE(is_complete_);
}

TEST_F(LogFollowerTest, BeginsWithTheOldestFile) {
  append("log.2", "1 a\n");
  compress("log.2");
  append("log.10", "0 z\n");
  append("log-20260101", "2 c\n");
  append("log.20260102", "2 d\n");
  append("log.1", "2 b\n");
  append("log", "3 c\n");
  append("logger", "9 another program's\n");
  append("log-", "9 without a name of its own\n");
  append("log.empty", "");
  EXPECT_EQ(read(), (Lines{"0 z", "1 a", "2 b", "2 c", "2 d", "3 c"}));
  EXPECT_TRUE(is_complete_);
}

TEST_F(LogFollowerTest, ALogOfAClockThatWasAheadIsNotTheNewest) {
  append("log", "2027 a\n");
  EXPECT_EQ(read(), Lines{"2027 a"});
  move("log", "log.1");
  append("log", "2026 b\n");
  EXPECT_EQ(read(), Lines{"2026 b"});
  move("log.1", "log.2");
  move("log", "log.1");
  append("log", "2026 c\n");
  EXPECT_EQ(read(), Lines{"2026 c"});
  append("log", "2026 d\n");
  EXPECT_EQ(read(), Lines{"2026 d"});
}

TEST_F(LogFollowerTest, ReadsAFileThatIsBeingCompressedOnce) {
  append("log.1", "1 a\n2 b\n");
  compress("log.1");
  append("log.1", "1 a\n2 b\n");
  append("log", "3 c\n");
  EXPECT_EQ(read(), (Lines{"1 a", "2 b", "3 c"}));
}

TEST_F(LogFollowerTest, SaysThatItsFileIsGone) {
  append("log", "1 a\n");
  read();
  std::filesystem::remove(directory_("log"));
  append("log", "7 g\n");
  EXPECT_EQ(read(), (Lines{"(missing)", "7 g"}));
  EXPECT_FALSE(is_complete_);
  EXPECT_EQ(read(), Lines{});
  EXPECT_TRUE(is_complete_);
}

TEST_F(LogFollowerTest, SaysThatAFileIsDamaged) {
  append("log.1", "1 a\n" + std::string(200'000, 'x') + "\n2 b\n");
  compress("log.1");
  std::filesystem::resize_file(directory_("log.1.gz"), 150);
  append("log", "3 c\n");
  EXPECT_EQ(read(), (Lines{"1 a", "(missing)", "3 c"}));
  EXPECT_FALSE(is_complete_);
}

TEST_F(LogFollowerTest, WithoutALogThereIsNothing) {
  EXPECT_EQ(read(), Lines{});
  EXPECT_TRUE(is_complete_);
  EXPECT_EQ(position_.first_line, "");
  EXPECT_EQ(LogFollower("/nowhere/log")
                .read(
                    position_, [](std::string_view) {}, [] {}),
            true);
}

TEST_F(LogFollowerTest, ReadsLongLinesAndLogs) {
  const std::string line(300'000, 'x');
  append("log", "1 " + line + "\n2 " + line + "\n3 c\n");
  EXPECT_EQ(read(), (Lines{"1 " + line, "2 " + line, "3 c"}));
  EXPECT_EQ(position_.offset, 2 * 300'003 + 4);
  std::string many;
  for (int i = 0; i < 30'000; ++i) many += "4 " + std::to_string(i) + "\n";
  append("log", many);
  const Lines lines = read();
  ASSERT_EQ(lines.size(), 30'000U);
  EXPECT_EQ(lines.back(), "4 29999");
}

TEST_F(LogFollowerTest, OfALineThatIsTooLongOnlyTheEndIsReturned) {
  append("log", "1 a\n2 " + std::string(std::size_t{3} << 20, 'x'));
  EXPECT_EQ(read(), (Lines{"1 a"}));
  append("log", "\n3 c\n");
  const Lines lines = read();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_LT(lines[0].size(), std::size_t{2} << 20);
  EXPECT_EQ(lines[1], "3 c");
}

}  // namespace
}  // namespace corvane::coverage
