#include "companions/alert/channel/command_channel.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <thread>

#include "tests/fakes/platform_fake_test.h"
#include "tests/support/descriptors.h"
#include "tests/support/idle.h"
#include "tests/support/in_child.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/shell_script.h"
#include "tests/unit/alert/channel/some_message.h"

namespace corvane::alert {
namespace {

using namespace std::chrono_literals;

// Tells when the last process that has opened the pipe's file for writing is gone.
class LifeLine {
 public:
  explicit LifeLine(std::string path) : path_(std::move(path)) {
    mkfifo(path_.c_str(), 0600);
    descriptor_ = open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  }
  ~LifeLine() { close(descriptor_); }
  LifeLine(const LifeLine&) = delete;
  LifeLine& operator=(const LifeLine&) = delete;

  const std::string& path() const { return path_; }
  // Waits until somebody has written to it.
  bool is_held() const { return polled() == POLLIN; }
  // Waits until nobody holds it any more; a process that was killed needs a moment.
  bool is_let_go() const {
    // Somebody must have been there: poll() does not report that nobody ever was.
    close(open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    char bytes[16];
    while (read(descriptor_, bytes, sizeof bytes) > 0) {
    }
    return polled() == POLLHUP;
  }

 private:
  short polled() const {
    pollfd waited{descriptor_, POLLIN, 0};
    return poll(&waited, 1, 30'000) == 1 ? waited.revents : short{0};
  }

  std::string path_;
  int descriptor_ = -1;
};

class CommandChannelTest : public PlatformFake {
 protected:
  std::string script(const std::string& body) const {
    test::write_script(directory("script"), body);
    return directory("script");
  }
  // Why it was not delivered; empty: it was.
  std::string sent(const std::string& command, const Message& message = some_message(),
                   int seconds = 10) const {
    const SendResult result = CommandChannel(command, seconds, stop).send(message);
    EXPECT_EQ(result.is_taken, result.reason.empty());
    return result.reason;
  }
  // Holds the life line in a process that the script leaves behind.
  std::string grandchild() const {
    return "exec 3> " + life_line.path() + "; echo held >&3; sleep 100 &\n";
  }
  std::string written(const char* name) const { return test::read_file(directory(name)); }

  const test::ScratchDir directory;
  const LifeLine life_line{directory("life_line")};
  StopFlag stop;
};

TEST_F(CommandChannelTest, GivesTheDocumentAndArgumentsWithoutAShell) {
  const std::string program = script("cat > " + directory("out") + "; echo \"$#:$1:$2\" > " +
                                     directory("arguments") + "\n");
  EXPECT_EQ(sent(program + "  $(id)  b"), "");
  EXPECT_EQ(written("out"), document_of(some_message()) + "\n");
  EXPECT_EQ(written("arguments"), "2:$(id):b\n");
}

TEST_F(CommandChannelTest, GivesTheWholeOfALargeDocument) {
  const std::string program = script("cat > " + directory("out"));
  // A pipe holds 64 KiB: of the first document a single byte is left over.
  for (const std::size_t size : {std::size_t{65'537}, std::size_t{1} << 20}) {
    Message message = some_message();
    message.body.append(size - document_of(message).size() - 1, 'x');
    const std::string document = document_of(message) + "\n";
    ASSERT_EQ(document.size(), size);
    EXPECT_EQ(sent(program, message), "");
    EXPECT_EQ(written("out"), document);
  }
}

// What somebody opens after the program has read everything may get the number of its input.
TEST_F(CommandChannelTest, ClosesItsInputOnce) {
  const std::string go_on = directory("go_on");
  mkfifo(go_on.c_str(), 0600);
  const int held = open(go_on.c_str(), O_RDWR | O_CLOEXEC);
  std::array<int, 8> later{};
  std::thread other([&] {
    EXPECT_TRUE(life_line.is_held());
    for (int& one : later) one = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
    EXPECT_EQ(write(held, "\n", 1), 1);
  });
  EXPECT_EQ(sent(script("cat > /dev/null; exec 3> " + life_line.path() +
                        "; echo held >&3; read x < " + go_on)),
            "");
  other.join();
  close(held);
  EXPECT_TRUE(std::ranges::all_of(later, [](int one) { return close(one) == 0; }));
}

TEST_F(CommandChannelTest, ThatDoesNotReadStillCounts) {
  Message message = some_message();
  message.body = std::string(1 << 20, 'x');
  EXPECT_EQ(sent("/bin/true", message), "");
  EXPECT_EQ(sent(script("exec 0< /dev/null; exit 0"), message), "");
}

TEST_F(CommandChannelTest, RestsWhileTheProgramNeitherReadsNorEnds) {
  Message message = some_message();
  message.body = std::string(1 << 17, 'x');  // more than a pipe holds
  const auto work_of = [&](const std::string& body) {
    const std::string program = script(body);
    return test::processor_time_of([&] { EXPECT_EQ(sent(program, message), ""); });
  };
  // To write the message takes its time, too.
  const auto without_a_wait = work_of("cat");
  for (const char* body : {"sleep 0.2", "exec 0< /dev/null; sleep 0.2", "cat; sleep 0.2"}) {
    EXPECT_LT(work_of(body) - without_a_wait, std::chrono::milliseconds(50)) << body;
  }
}

TEST_F(CommandChannelTest, SaysHowTheProgramFailed) {
  EXPECT_EQ(sent(script("exit 1")), "the program exited with status 1");
  EXPECT_EQ(sent(script("exit 255")), "the program exited with status 255");
  EXPECT_EQ(sent(script("kill -9 $$")), "the program was killed by signal 9");
}

TEST_F(CommandChannelTest, SaysWhyTheProgramCannotBeStarted) {
  EXPECT_EQ(sent(directory("none")), directory("none") + ": No such file or directory");
  test::write_file(directory("none"), "");
  EXPECT_EQ(sent(directory("none")), directory("none") + ": Permission denied");
  for (const char* command : {"", " ", "relative", "./here"}) {
    EXPECT_EQ(sent(command), "COMMAND must be the full path of a program") << command;
  }
}

TEST_F(CommandChannelTest, StartsTheProgramWithDefaultSignals) {
  sigset_t blocked;
  sigset_t former;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, &former);
  auto* const handler = std::signal(SIGUSR1, SIG_IGN);
  EXPECT_EQ(sent(script("grep -E 'Sig(Blk|Ign)' /proc/self/status > " + directory("out"))), "");
  std::signal(SIGUSR1, handler);
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
  std::istringstream lines(written("out"));
  std::string name;
  std::uint64_t mask = 0;
  lines >> name >> std::hex >> mask;
  EXPECT_EQ(mask, 0U) << name;
  lines >> name >> mask;
  EXPECT_EQ(mask & (1U << (SIGUSR1 - 1)), 0U) << name;
}

TEST_F(CommandChannelTest, StartsTheProgramWithoutOutputAndDescriptors) {
  std::array<int, 2> inherited{};  // by a program that does not close them
  inherited[0] = fcntl(STDIN_FILENO, F_DUPFD, 20);
  inherited[1] = fcntl(STDIN_FILENO, F_DUPFD, 50);
  const std::string program =
      script("exec 9> " + directory("out") +
             "\n"
             "echo $(readlink /proc/$$/fd/1) $(readlink /proc/$$/fd/2) >&9\n"
             "for fd in 3 " +
             std::to_string(inherited[0]) + " " + std::to_string(inherited[1]) +
             "; do test -e /proc/$$/fd/$fd && echo open >&9; done; exit 0\n");
  const auto send_it = [&] {
    EXPECT_EQ(fcntl(3, F_SETFD, 0), 0);  // the fixture's, or of whoever started the test
    EXPECT_EQ(sent(program), "");
    return 0;
  };
  EXPECT_EQ(test::in_child(send_it), 0);
  for (const int one : inherited) close(one);
  EXPECT_EQ(written("out"), "/dev/null /dev/null\n");
}

TEST_F(CommandChannelTest, StartsTheProgramInAGroupOfItsOwn) {
  EXPECT_EQ(sent(script("cut -d ' ' -f 5 /proc/$$/stat > " + directory("out") + "; echo $$ >> " +
                        directory("out"))),
            "");
  std::istringstream ids(written("out"));
  int group = 0;
  int process = -1;
  ids >> group >> process;
  EXPECT_EQ(group, process);
}

TEST_F(CommandChannelTest, LeavesNothingBehindWhenTheProgramEnds) {
  EXPECT_EQ(sent(script(grandchild() + "exit 0\n")), "");
  EXPECT_TRUE(life_line.is_let_go());
}

// The document is too large for a pipe that nobody reads.
TEST_F(CommandChannelTest, KillsTheProgramAndWhatItStartedAfterTheTimeLimit) {
  Message message = some_message();
  message.body = std::string(1 << 20, 'x');
  EXPECT_EQ(sent(script(grandchild() + "wait\n"), message, 1),
            "the program took longer than 1 s and was killed");
  EXPECT_TRUE(life_line.is_let_go());
}

TEST_F(CommandChannelTest, KillsTheProgramAndWhatItStartedForTheStopFlag) {
  const std::string program = script(grandchild() + "wait\n");
  std::thread asker([&] {
    EXPECT_TRUE(life_line.is_held());
    stop.ask();
  });
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(sent(program, some_message(), 60), "interrupted: cvanomalyalert is stopping");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
  asker.join();
  EXPECT_TRUE(life_line.is_let_go());
}

TEST_F(CommandChannelTest, LeavesNoDescriptorAndNoChild) {
  const int next = test::lowest_free_descriptor();
  sent("/bin/true");
  sent("/bin/false");
  sent(directory("none"));
  sent("/bin/sleep 100", some_message(), 0);
  EXPECT_EQ(test::lowest_free_descriptor(), next);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(CommandChannelTest, SaysThatDescriptorsAreMissing) {
  const int next = test::lowest_free_descriptor();
  const auto is_refused_with = [&](int more) {
    return test::in_child([&] {
      const rlimit limit{static_cast<rlim_t>(next + more), static_cast<rlim_t>(next + more)};
      setrlimit(RLIMIT_NOFILE, &limit);
      const SendResult result = CommandChannel("/bin/true", 10, stop).send(some_message());
      return !result.is_taken && result.reason == "Too many open files" ? 1 : 0;
    });
  };
  EXPECT_EQ(is_refused_with(1), 1);
  EXPECT_EQ(is_refused_with(3), 0);
}

}  // namespace
}  // namespace corvane::alert
