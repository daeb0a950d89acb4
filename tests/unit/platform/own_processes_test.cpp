#include "platform/own_processes.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "tests/support/scratch_dir.h"

namespace corvane {
namespace {

// A process table in which the processes 1 and 2 have these root directories and namespaces; "self"
// is 1.
class TwoProcesses : public testing::Test {
 protected:
  TwoProcesses() {
    for (const char* name : {"root1", "root2", "pid1", "pid2"}) test::write_file(files_(name), "");
    link(files_("root1"), "self/root");
    link(files_("pid1"), "self/ns/pid");
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

TEST_F(TwoProcesses, AreOfOneSystemWithTheSameRootAndNamespace) {
  EXPECT_TRUE(is_of_this_system(2, proc_()));  // cannot be told
  link(files_("root1"), "2/root");
  EXPECT_TRUE(is_of_this_system(2, proc_()));
  link(files_("pid1"), "2/ns/pid");
  EXPECT_TRUE(is_of_this_system(2, proc_()));
  link(files_("pid2"), "2/ns/pid");
  EXPECT_FALSE(is_of_this_system(2, proc_()));
  link(files_("pid1"), "2/ns/pid");
  link(files_("root2"), "2/root");
  EXPECT_FALSE(is_of_this_system(2, proc_()));
  EXPECT_TRUE(is_of_this_system(3, proc_()));
  EXPECT_TRUE(is_of_this_system(getpid()));
}

TEST_F(TwoProcesses, OneWithMoreIdsIsOfAnotherSystem) {
  const auto ids = [&](const char* name, const std::string& text) {
    test::write_file(proc_.path() / name / "status", "Name:\tx\nNStgid:\t1\t2\n" + text);
  };
  ids("self", "NSpid:\t7\nNSpgid:\t1\t2\n");
  ids("2", "NSpid:\t8\nNSpgid:\t1\t2\t3\n");
  EXPECT_TRUE(is_of_this_system(2, proc_()));
  ids("2", "NSpid:\t8\t1\n");
  EXPECT_FALSE(is_of_this_system(2, proc_()));
  ids("self", "NSpid:\t7\t3\n");
  EXPECT_TRUE(is_of_this_system(2, proc_()));
  ids("2", "NSpid:\t8\n");
  EXPECT_TRUE(is_of_this_system(2, proc_()));
  ids("2", "");
  EXPECT_TRUE(is_of_this_system(2, proc_()));
}

// A child of this program with the same name, in another root directory if there is one.
class Child {
 public:
  explicit Child(const std::string& root = "") : id_(fork()) {
    if (id_ != 0) return;
    if (!root.empty() && chroot(root.c_str()) != 0) _exit(1);
    kill(getpid(), SIGSTOP);
    _exit(0);
  }
  ~Child() {
    kill(id_, SIGKILL);
    waitpid(id_, nullptr, 0);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  bool is_found() const {
    waitpid(id_, nullptr, WUNTRACED);  // it has got that far
    return std::ranges::count(own_processes(program_invocation_short_name), id_) > 0;
  }

 private:
  pid_t id_;
};

TEST(OwnProcesses, AreFoundByTheirName) {
  EXPECT_TRUE(Child().is_found());
  EXPECT_EQ(own_processes("no such program"), std::vector<pid_t>{});
}

TEST(OwnProcesses, OneWithAnotherRootIsNone) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can take another root directory";
  const test::ScratchDir root;
  EXPECT_FALSE(Child(root()).is_found());
}

}  // namespace
}  // namespace corvane
