#include "health/machine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <ctime>
#include <fstream>

#include "tests/support/scratch_dir.h"

namespace corvane::health {
namespace {

TEST(Machine, AProcessBeganSomeTicksAfterTheMachine) {
  const test::ScratchDir proc;
  test::write_file(proc.path() / "stat", "cpu 1 2\nbtime 1000000\nprocesses 5\n");
  test::write_file(proc.path() / "77/stat",
                   "77 (a) name) S 1 77 77 0 -1 4194560 1 2 3 4 5 6 7 8 20 0 1 0 " +
                       std::to_string(sysconf(_SC_CLK_TCK) * 60) + " 9 9\n");
  EXPECT_EQ(started_at(77, proc()), 1000060);
  EXPECT_EQ(started_at(78, proc()), 0);
}

TEST(Machine, AProcessWhoseFilesSayTooLittleIsNone) {
  const test::ScratchDir proc;
  const auto began = [&](const std::string& of_process, const std::string& of_machine) {
    test::write_file(proc.path() / "stat", of_machine);
    test::write_file(proc.path() / "77/stat", of_process);
    return started_at(77, proc());
  };
  const std::string fields = "77 (a) S 1 77 77 0 -1 4194560 1 2 3 4 5 6 7 8 20 0 1 0 ";
  const std::string ticks = std::to_string(sysconf(_SC_CLK_TCK) * 3);
  EXPECT_EQ(began(fields + ticks + " 99999 9", "btime 50\n"), 53);
  EXPECT_EQ(began(fields + ticks, "btime 50"), 53);  // the last field that is needed
  EXPECT_EQ(began(fields + "x", "btime 50\n"), 0);
  EXPECT_EQ(began("77 a S 1", "btime 50\n"), 0);
  EXPECT_EQ(began("", "btime 50\n"), 0);
  EXPECT_EQ(began(fields + ticks, "cpu 1 2\n"), 0);
  EXPECT_EQ(began(fields + ticks, "cpu 1 2\nbtime x\n"), 0);
  EXPECT_EQ(began(fields + ticks, ""), 0);
}

TEST(Machine, AStoppedProcess) {
  const test::ScratchDir proc;
  const auto is_stopped_in = [&](const std::string& stat) {
    test::write_file(proc.path() / "77/stat", stat);
    return is_stopped(77, proc());
  };
  for (const char* state : {"T", "t"}) {
    EXPECT_TRUE(is_stopped_in(std::string("77 (a) S) ") + state + " 1 77\n")) << state;
  }
  for (const char* state : {"S", "R", "D", "Z", "S T", ""}) {
    EXPECT_FALSE(is_stopped_in(std::string("77 (a) ") + state + " 1 77\n")) << state;
  }
  EXPECT_FALSE(is_stopped_in("77 (a)"));
  EXPECT_FALSE(is_stopped_in(""));
  EXPECT_FALSE(is_stopped(78, proc()));
}

TEST(Machine, SharesOfADisk) {
  EXPECT_EQ((DiskSpace{200, 50}.percent_free()), 25);
  EXPECT_EQ((DiskSpace{1, 0}.percent_free()), 0);
  EXPECT_EQ((DiskSpace{0, 0}.percent_free()), 100);  // unknown is no problem
}

TEST(Machine, FilesHaveBytes) {
  const test::ScratchDir directory;
  test::write_file(directory("file"), "12345");
  EXPECT_EQ(file_bytes(directory("file")), 5);
  EXPECT_EQ(file_bytes(directory("none")), 0);
}

TEST(Machine, OwnProcessBeganNotLongAgo) {
  const std::int64_t since = started_at(getpid());
  EXPECT_GT(since, time(nullptr) - 3600);
  EXPECT_LE(since, time(nullptr) + 1);
}

TEST(Machine, DiskOfAFileThatIsNotThereYet) {
  const test::ScratchDir directory;
  const DiskSpace disk = disk_space(directory("none.db"));
  struct statvfs known {};
  ASSERT_EQ(statvfs(directory().c_str(), &known), 0);
  EXPECT_EQ(disk.total, static_cast<std::int64_t>(known.f_blocks * known.f_frsize));
  EXPECT_NEAR(static_cast<double>(disk.available),
              static_cast<double>(known.f_bavail * known.f_frsize), 1 << 30);  // others write too
  EXPECT_EQ(disk_space("/nonexistent/x").total, 0);
  EXPECT_EQ(disk_space("/nonexistent/x").available, 0);
  EXPECT_GT(disk_space("none.db").total, 0);  // in the current directory
}

// A process table.
class OpenFiles : public testing::Test {
 protected:
  OpenFiles() {
    for (const char* name : {"db", "other"}) test::write_file(files_(name), "");
  }
  void link(const std::string& target, const std::string& name) const {
    const std::filesystem::path path = proc_.path() / name;
    std::filesystem::create_directories(path.parent_path());
    std::filesystem::remove(path);
    std::filesystem::create_symlink(target, path);
  }
  test::ScratchDir files_;
  test::ScratchDir proc_;
};

TEST_F(OpenFiles, AFileIsKnownByItselfRatherThanByItsName) {
  EXPECT_EQ(open_file(2, files_("db"), proc_()), OpenFile::kUnknown);  // nobody may look
  link(files_("other"), "2/fd/3");
  EXPECT_EQ(open_file(2, files_("db"), proc_()), OpenFile::kNotOpen);
  link(files_("db"), "2/fd/4");
  EXPECT_EQ(open_file(2, files_("db"), proc_()), OpenFile::kOpen);
  EXPECT_EQ(open_file(2, files_("none"), proc_()), OpenFile::kUnknown);
  link(files_("gone"), "2/fd/4");
  EXPECT_EQ(open_file(2, files_("db"), proc_()), OpenFile::kNotOpen);
}

TEST_F(OpenFiles, AFileThatWasReplacedIsNotTheOneThatIsOpen) {
  const std::string path = files_("db");
  std::ifstream open(path);
  EXPECT_EQ(open_file(getpid(), path), OpenFile::kOpen);
  std::filesystem::rename(path, files_("former"));
  test::write_file(path, "");
  EXPECT_EQ(open_file(getpid(), path), OpenFile::kNotOpen);
}

TEST_F(OpenFiles, WhoMayOpenAFile) {
  const std::string path = files_("db");
  const auto open_with = [&](mode_t mode, mode_t directory = 0755) {
    EXPECT_EQ(chmod(path.c_str(), mode), 0);
    EXPECT_EQ(chmod(files_().c_str(), directory), 0);
    return is_open_to_others(path);
  };
  EXPECT_FALSE(open_with(0600));
  EXPECT_FALSE(open_with(0660));  // its owner's own group
  EXPECT_FALSE(open_with(0661));  // nobody can run it
  for (const mode_t mode : {0602U, 0604U}) EXPECT_TRUE(open_with(mode)) << mode;
  EXPECT_FALSE(open_with(0644, 0754));  // nobody gets there
  EXPECT_TRUE(open_with(0644, 0751));
  EXPECT_FALSE(is_open_to_others(files_("none")));
  if (getuid() != 0) GTEST_SKIP() << "only root can give files away";
  const std::string directory = files_();
  ASSERT_EQ(chown(directory.c_str(), 0, 7), 0);
  EXPECT_TRUE(open_with(0644, 0710));  // the group of the directory
  EXPECT_FALSE(open_with(0640, 0710));
  EXPECT_FALSE(open_with(0644, 0760));
  ASSERT_EQ(chown(path.c_str(), 0, 7), 0);
  EXPECT_FALSE(open_with(0600));
  EXPECT_FALSE(open_with(0610));
  for (const mode_t mode : {0620U, 0640U}) {
    EXPECT_TRUE(open_with(mode)) << mode;
    EXPECT_TRUE(open_with(mode, 0710)) << mode;
    EXPECT_FALSE(open_with(mode, 0700)) << mode;
    EXPECT_FALSE(open_with(mode, 0701)) << mode;
  }
  ASSERT_EQ(chown(directory.c_str(), 0, 0), 0);
  EXPECT_TRUE(open_with(0640, 0701));
  ASSERT_EQ(chown(path.c_str(), 1 << 30, 0), 0);  // nobody has this number
  EXPECT_TRUE(open_with(0640));
}

TEST_F(OpenFiles, AFileHasAnOwnerAndATime) {
  EXPECT_EQ(owner_of(files_("db")), getuid());
  EXPECT_EQ(owner_of(files_("none")), std::nullopt);
  const timespec times[]{{5, 0}, {6, 999999999}};
  ASSERT_EQ(utimensat(AT_FDCWD, files_("db").c_str(), times, 0), 0);
  EXPECT_EQ(changed_at(files_("db")), 6);
  EXPECT_EQ(changed_at(files_("none")), 0);
}

TEST_F(OpenFiles, WhatAnAccountMayRead) {
  const std::string path = files_("db");
  constexpr uid_t kStranger = 1 << 30;  // has no group
  const auto may_read_with = [&](uid_t account, mode_t mode, mode_t directory = 0755) {
    EXPECT_EQ(chmod(path.c_str(), mode), 0);
    EXPECT_EQ(chmod(files_().c_str(), directory), 0);
    return may_read(account, path);
  };
  EXPECT_TRUE(may_read_with(kStranger, 0604));
  EXPECT_FALSE(may_read_with(kStranger, 0662));
  EXPECT_TRUE(may_read_with(kStranger, 0604, 0701));
  EXPECT_FALSE(may_read_with(kStranger, 0604, 0776));
  EXPECT_TRUE(may_read_with(0, 0000, 0000));
  EXPECT_TRUE(may_read(kStranger, files_("none")));
  if (getuid() != 0) GTEST_SKIP() << "only root can give files away";
  const struct passwd* known = getpwnam("daemon");
  ASSERT_NE(known, nullptr);
  const uid_t account = known->pw_uid;
  const gid_t group = known->pw_gid;
  const std::string directory = files_();
  ASSERT_EQ(chown(path.c_str(), 0, group), 0);
  EXPECT_TRUE(may_read_with(account, 0640));
  EXPECT_FALSE(may_read_with(account, 0604));  // the group's bits count
  EXPECT_FALSE(may_read_with(kStranger, 0640));
  ASSERT_EQ(chown(path.c_str(), account, 0), 0);
  EXPECT_TRUE(may_read_with(account, 0400));
  EXPECT_FALSE(may_read_with(account, 0044));
  ASSERT_EQ(chown(directory.c_str(), account, 0), 0);
  EXPECT_TRUE(may_read_with(account, 0400, 0100));
  EXPECT_FALSE(may_read_with(account, 0400, 0677));
  ASSERT_EQ(chown(directory.c_str(), 0, group), 0);
  EXPECT_TRUE(may_read_with(account, 0400, 0710));
  EXPECT_FALSE(may_read_with(account, 0400, 0701));
}

// With an access list the mode does not tell.
TEST_F(OpenFiles, WhatAnAccessListAllowsIsNotDenied) {
  const std::string path = files_("db");
  constexpr uid_t kStranger = 1 << 30;
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  EXPECT_FALSE(may_read(kStranger, path));
  struct Entry {
    std::uint16_t tag, permissions;
    std::uint32_t id;
  };
  const struct {
    std::uint32_t version = 2;
    Entry entries[5]{{1, 6, ~0U}, {2, 4, kStranger}, {4, 0, ~0U}, {0x10, 4, ~0U}, {0x20, 0, ~0U}};
  } list;
  if (setxattr(path.c_str(), "system.posix_acl_access", &list, sizeof list, 0) != 0) {
    GTEST_SKIP() << "this disk knows no access lists";
  }
  EXPECT_TRUE(may_read(kStranger, path));
}

}  // namespace
}  // namespace corvane::health
