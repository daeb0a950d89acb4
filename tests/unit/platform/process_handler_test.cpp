#include "platform/process_handler.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/in_child.h"
#include "tests/support/scratch_dir.h"

using corvane::test::in_child;
using corvane::test::ScratchDir;
using corvane::test::start_child;
using corvane::test::status_of;
using corvane::test::write_file;
using std::chrono::steady_clock;

namespace {

using Pids = std::vector<pid_t>;

// A process that ends with the test, at the latest.
class Child {
 public:
  explicit Child(const std::function<void()>& body)
      : pid_(start_child([&body] {
          prctl(PR_SET_PDEATHSIG, SIGKILL);
          body();
          return 97;
        })) {}
  ~Child() {
    if (pid_ > 0) kill(pid_, SIGKILL);
    status();
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t pid() const { return pid_; }

  // Waits for its end.
  int status() {
    if (pid_ > 0) status_ = status_of(pid_);
    pid_ = -1;
    return status_;
  }

 private:
  pid_t pid_;
  int status_ = -1;
};

void wait_for_ever() {
  for (;;) pause();
}

void take_name(const std::string& name) { prctl(PR_SET_NAME, name.c_str()); }

class ProcessTable : public ::testing::Test {
 protected:
  // Looks until as many processes as wanted have the name, for ten seconds at most.
  static Pids wait_until_found(const std::string& name, std::size_t wanted) {
    const auto deadline = steady_clock::now() + std::chrono::seconds(10);
    Pids found;
    do {
      found = ProcessHandler(name).getProcessIDs();
      if (found.size() == wanted) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    } while (steady_clock::now() < deadline);
    return found;
  }

  std::string copy_of_sleep(const std::string& file_name) {
    const std::string path = scratch(file_name);
    std::filesystem::copy_file("/bin/sleep", path);
    return path;
  }

  ScratchDir scratch;
  const std::string name = "cvt" + std::to_string(getpid());  // nobody else's
};

void run_sleep(const std::string& path, const char* argument_zero = "x") {
  execl(path.c_str(), argument_zero, "60", nullptr);
}

}  // namespace

TEST_F(ProcessTable, FindsProcessByTheKernelsName) {
  Child child([this] {
    take_name(name);
    wait_for_ever();
  });
  EXPECT_EQ(wait_until_found(name, 1), Pids{child.pid()});
}

TEST_F(ProcessTable, FindsExecutableWithANameTooLongForTheKernel) {
  const std::string long_name = name + "_with_more_than_15_characters";
  const std::string path = copy_of_sleep(long_name);
  Child child([&] { run_sleep(path); });
  EXPECT_EQ(wait_until_found(long_name, 1), Pids{child.pid()});
}

TEST_F(ProcessTable, FindsExecutableThatWasDeletedOrReplaced) {
  const std::string long_name = name + "_with_more_than_15_characters";
  const std::string path = copy_of_sleep(long_name);
  Child child([&] { run_sleep(path); });
  ASSERT_EQ(wait_until_found(long_name, 1), Pids{child.pid()});
  std::filesystem::remove(path);
  EXPECT_EQ(ProcessHandler(long_name).getProcessIDs(), Pids{child.pid()});
  EXPECT_EQ(ProcessHandler(long_name + " (deleted)").getProcessIDs(), Pids{});
}

TEST_F(ProcessTable, FindsScriptByItsOwnName) {
  write_file(scratch(name), "#!/bin/sh\nread line\nexit 0\n");
  std::filesystem::permissions(scratch(name), std::filesystem::perms::owner_all);
  int input[2];
  ASSERT_EQ(pipe(input), 0);
  {
    Child child([&] {
      dup2(input[0], 0);
      execl(scratch(name).c_str(), "x", nullptr);
    });
    EXPECT_EQ(wait_until_found(name, 1), Pids{child.pid()});
  }
  close(input[0]);
  close(input[1]);
}

TEST_F(ProcessTable, ArgumentsAndDirectoriesDoNotCount) {
  const std::string other = name + "x";
  std::filesystem::create_directory(scratch(name));
  const std::string path = copy_of_sleep(name + "/" + other);
  Child child([&] { run_sleep(path, name.c_str()); });
  ASSERT_EQ(wait_until_found(other, 1), Pids{child.pid()});
  EXPECT_EQ(ProcessHandler(name).getProcessIDs(), Pids{});
}

TEST_F(ProcessTable, PartOfANameIsNotTheName) {
  Child child([this] {
    take_name(name);
    wait_for_ever();
  });
  ASSERT_EQ(wait_until_found(name, 1), Pids{child.pid()});
  EXPECT_EQ(ProcessHandler(name + "x").getProcessIDs(), Pids{});
  EXPECT_EQ(ProcessHandler(name.substr(0, name.size() - 1)).getProcessIDs(), Pids{});
  EXPECT_EQ(ProcessHandler("").getProcessIDs(), Pids{});
}

TEST_F(ProcessTable, ZombieIsNotCounted) {
  Child child([this] {
    take_name(name);
    wait_for_ever();
  });
  ASSERT_EQ(wait_until_found(name, 1), Pids{child.pid()});
  kill(child.pid(), SIGKILL);
  siginfo_t info{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child.pid()), &info, WEXITED | WNOWAIT), 0);
  ASSERT_EQ(kill(child.pid(), 0), 0) << "it is still in the table";
  EXPECT_EQ(ProcessHandler(name).getProcessIDs(), Pids{});
}

TEST_F(ProcessTable, NameThatLooksLikeTheStateOfAZombieIsRead) {
  const std::string odd = "a) Z (b";
  Child child([&] {
    take_name(odd);
    wait_for_ever();
  });
  EXPECT_EQ(wait_until_found(odd, 1), Pids{child.pid()});
}

TEST_F(ProcessTable, CallerIsNotCounted) {
  EXPECT_EQ(in_child([this] {
              take_name(name);
              Child child(wait_for_ever);  // inherits the name
              EXPECT_EQ(wait_until_found(name, 1), Pids{child.pid()});
              return 0;
            }),
            0);
}

TEST_F(ProcessTable, ThreadsAreNotCounted) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  Child child([&] {
    std::thread thread([&] {
      take_name(name);
      if (write(ready[1], "x", 1) == 1) wait_for_ever();
    });
    thread.join();
  });
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  close(ready[0]);
  close(ready[1]);
  EXPECT_EQ(ProcessHandler(name).getProcessIDs(), Pids{});
}

TEST_F(ProcessTable, NoDescriptorIsLeft) {
  const auto open_descriptors = [] {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  const auto before = open_descriptors();
  EXPECT_TRUE(ProcessHandler(name).getProcessIDs().empty());
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(ProcessTable, IdsAreAscending) {
  const auto named = [this] {
    take_name(name);
    wait_for_ever();
  };
  Child first(named);
  Child second(named);
  Child third(named);
  Pids expected{first.pid(), second.pid(), third.pid()};
  std::ranges::sort(expected);
  EXPECT_EQ(wait_until_found(name, 3), expected);
}

TEST_F(ProcessTable, TerminateWithoutProcessesReturnsAtOnce) {
  const auto begin = steady_clock::now();
  ProcessHandler(name).terminate();
  EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(1));
}

TEST_F(ProcessTable, TerminateAsksWithSigtermFirst) {
  Child child([this] {
    signal(SIGTERM, [](int) { _exit(7); });
    take_name(name);
    wait_for_ever();
  });
  ASSERT_EQ(wait_until_found(name, 1).size(), 1U);
  const auto begin = steady_clock::now();
  ProcessHandler(name).terminate();
  EXPECT_LT(steady_clock::now() - begin, std::chrono::milliseconds(1500));
  EXPECT_EQ(child.status(), 7);
}

TEST_F(ProcessTable, TerminateKillsWhatIgnoresSigtermAfterTwoSecondsAndEndsAll) {
  Child stubborn([this] {
    signal(SIGTERM, SIG_IGN);
    take_name(name);
    wait_for_ever();
  });
  const auto obedient = [this] {
    take_name(name);
    wait_for_ever();
  };
  Child second(obedient);
  Child third(obedient);
  ASSERT_EQ(wait_until_found(name, 3).size(), 3U);
  const auto begin = steady_clock::now();
  ProcessHandler(name).terminate();
  const auto lasted = steady_clock::now() - begin;
  EXPECT_GE(lasted, std::chrono::seconds(2));
  EXPECT_LT(lasted, std::chrono::seconds(4));
  EXPECT_EQ(stubborn.status(), 128 + SIGKILL);
  EXPECT_EQ(second.status(), 128 + SIGTERM);
  EXPECT_EQ(third.status(), 128 + SIGTERM);
}

TEST_F(ProcessTable, TerminateSparesTheCaller) {
  EXPECT_EQ(in_child([this] {
              take_name(name);
              Child sibling(wait_for_ever);
              ProcessHandler(name).terminate();
              EXPECT_EQ(sibling.status(), 128 + SIGTERM);
              return 0;
            }),
            0);
}

TEST_F(ProcessTable, TerminateGivesUpAfterFiveSeconds) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can make a process that its caller cannot end";
  Child child([this] {
    take_name(name);
    wait_for_ever();
  });
  ASSERT_EQ(wait_until_found(name, 1).size(), 1U);
  EXPECT_EQ(in_child([this] {
              constexpr uid_t kOrdinary = 65534;
              if (setuid(kOrdinary) != 0) return 90;
              const auto begin = steady_clock::now();
              ProcessHandler(name).terminate();
              const auto lasted = steady_clock::now() - begin;
              EXPECT_GE(lasted, std::chrono::seconds(5));
              EXPECT_LT(lasted, std::chrono::seconds(7));
              return 0;
            }),
            0);
  EXPECT_EQ(ProcessHandler(name).getProcessIDs(), Pids{child.pid()});
}
