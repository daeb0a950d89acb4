#include "util/process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>

#include "tests/support/child_process.h"
#include "tests/support/scratch_dir.h"

namespace {

using corvane::test::kChildSucceeded;
using corvane::test::read_file;
using corvane::test::run_in_child;
using corvane::test::ScratchDir;
using corvane::test::write_file;

// Prints each of its arguments on a line of its own.
constexpr char kPrintArguments[] = "for a in \"$@\"; do printf '<%s>\\n' \"$a\"; done\n";

class ProcessTest : public ::testing::Test {
 protected:
  // The command that runs `script`.
  std::string tool(const std::string& script) {
    write_file(scratch_("tool"), script);
    return "/bin/sh " + scratch_("tool");
  }

  // What `command` with `arguments` writes to its output file.
  std::string output_of(const std::string& command, const std::string& arguments) {
    const std::string path = scratch_("out.txt");
    std::filesystem::remove(path);
    Process process(command, arguments);
    process.redirect_to_file(path);
    process.start();
    return read_file(path);
  }

  ScratchDir scratch_;
};

std::ptrdiff_t open_descriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return std::distance(begin(descriptors), end(descriptors));
}

bool is_open(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

TEST_F(ProcessTest, ExitCodeIsMinus1BeforeStart) {
  EXPECT_EQ(Process("/bin/true", "").exit_code(), -1);
}

TEST_F(ProcessTest, AToolThatExitsWithStatus3Leaves768) {
  Process process(tool("exit 3"), "");
  process.start();
  EXPECT_EQ(process.exit_code(), 768);
}

TEST_F(ProcessTest, ExitStatusIsTheRawStatusWord) {
  Process success(tool("exit 0"), "");
  success.start();
  EXPECT_EQ(success.exit_code(), 0);
  Process killed(tool("kill -9 $$"), "");
  killed.start();
  EXPECT_EQ(killed.exit_code(), 9);
}

TEST_F(ProcessTest, StartWaitsForTheTool) {
  Process process(tool("sleep 0.1; echo done > " + scratch_("done")), "");
  process.start();
  EXPECT_EQ(read_file(scratch_("done")), "done\n");
}

TEST_F(ProcessTest, StandardOutputAndErrorGoToTheFileInOrder) {
  EXPECT_EQ(output_of(tool("echo one; echo two >&2; echo three"), ""), "one\ntwo\nthree\n");
}

TEST_F(ProcessTest, OutputFileIsCreatedWithMode0644) {
  const mode_t before = umask(0);
  output_of(tool("echo x"), "");
  umask(before);
  struct stat status;
  ASSERT_EQ(stat(scratch_("out.txt").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFREG | 0644));
}

TEST_F(ProcessTest, OutputFileIsNotTruncated) {
  write_file(scratch_("out.txt"), "old bytes that stay");
  Process process(tool("printf new"), "");
  process.redirect_to_file(scratch_("out.txt"));
  process.start();
  EXPECT_EQ(read_file(scratch_("out.txt")), "new bytes that stay");
}

TEST_F(ProcessTest, WithoutRedirectionTheToolWritesToTheCallersOutput) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  Process process(tool("echo out; echo err >&2"), "");
  process.start();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "out\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "err\n");
}

TEST_F(ProcessTest, EmptyArgumentsAddNoArgument) {
  EXPECT_EQ(output_of(tool("echo $#"), ""), "0\n");
  EXPECT_EQ(output_of(tool("echo $#") + " -M master  ", ""), "2\n");
}

TEST_F(ProcessTest, ArgumentsFollowTheCommandAfterABlank) {
  EXPECT_EQ(output_of(tool(kPrintArguments) + " -a", "-b c"), "<-a>\n<-b>\n<c>\n");
}

TEST_F(ProcessTest, QuotesKeepAnArgumentTogether) {
  EXPECT_EQ(output_of(tool(kPrintArguments), "\"one two\" 'three  four' five"),
            "<one two>\n<three  four>\n<five>\n");
}

TEST_F(ProcessTest, NoShellSeesTheLine) {
  EXPECT_EQ(output_of(tool(kPrintArguments), "$HOME * ; `id` | > <"),
            "<$HOME>\n<*>\n<;>\n<`id`>\n<|>\n<>>\n<<>\n");
}

TEST_F(ProcessTest, PercentSignsAreNotInterpreted) {
  EXPECT_EQ(output_of(tool(kPrintArguments), "100% %s %n %d%%"), "<100%>\n<%s>\n<%n>\n<%d%%>\n");
}

TEST_F(ProcessTest, ArgumentsOf1025CharactersGetABufferOf2050) {
  const std::string argument(1025, 'a');
  // The command fills the line up to the last character that has room beside the final NUL.
  std::string command = tool(kPrintArguments) + " ";
  command += std::string(2049 - 1 - argument.size() - command.size(), 'c');
  const std::string filler = command.substr(command.rfind(' ') + 1);
  EXPECT_EQ(output_of(command, argument), "<" + filler + ">\n<" + argument + ">\n");
  EXPECT_EQ(output_of(command + "c", argument),
            "<" + filler + "c>\n<" + argument.substr(1) + ">\n");
}

TEST_F(ProcessTest, ArgumentsOf1024CharactersGetABufferOf2048) {
  const std::string argument(1024, 'a');
  std::string command = tool(kPrintArguments) + " ";
  command += std::string(2047 - 1 - argument.size() - command.size(), 'c');
  const std::string filler = command.substr(command.rfind(' ') + 1);
  EXPECT_EQ(output_of(command, argument), "<" + filler + ">\n<" + argument + ">\n");
  EXPECT_EQ(output_of(command + "c", argument),
            "<" + filler + "c>\n<" + argument.substr(1) + ">\n");
}

TEST_F(ProcessTest, LongArgumentsArriveWhole) {
  const std::string argument(100'000, 'a');
  EXPECT_EQ(output_of(tool(kPrintArguments), argument), "<" + argument + ">\n");
}

TEST_F(ProcessTest, AtMost128Arguments) {
  std::string arguments;
  for (int i = 0; i < 200; ++i) arguments += " " + std::to_string(i);
  // 128 places: sh, the script, these, and the end of the list.
  EXPECT_EQ(output_of(tool("echo $#"), arguments), "125\n");
}

TEST_F(ProcessTest, EnvironmentIsInherited) {
  ASSERT_EQ(setenv("CV_PROCESS_TEST", "handed on = as it is", 1), 0);
  const std::string output = output_of(tool("echo \"$CV_PROCESS_TEST\""), "");
  unsetenv("CV_PROCESS_TEST");
  EXPECT_EQ(output, "handed on = as it is\n");
}

TEST_F(ProcessTest, MissingProgramLeavesTheOutputFileEmpty) {
  const std::string path = scratch_("out.txt");
  Process process(scratch_("no_such_tool"), "-x");
  process.redirect_to_file(path);
  EXPECT_NO_THROW(process.start());
  EXPECT_EQ(read_file(path), "");
  EXPECT_NE(process.exit_code(), 0);
}

TEST_F(ProcessTest, OutputFileThatCannotBeOpenedLeavesTheToolRunning) {
  testing::internal::CaptureStdout();
  Process process(tool("echo ran; exit 3"), "");
  process.redirect_to_file(scratch_("nowhere/out.txt"));
  EXPECT_NO_THROW(process.start());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "ran\n");
  EXPECT_EQ(process.exit_code(), 768);
  EXPECT_FALSE(std::filesystem::exists(scratch_("nowhere")));
}

TEST_F(ProcessTest, StandardInputIsDescriptor0) {
  write_file(scratch_("in.txt"), "typed\n");
  EXPECT_EQ(run_in_child([this] {
              const int input = open(scratch_("in.txt").c_str(), O_RDONLY);
              dup2(input, STDIN_FILENO);
              EXPECT_EQ(output_of("/bin/cat", ""), "typed\n");
            }),
            kChildSucceeded);
}

TEST_F(ProcessTest, TheToolHoldsTheOutputFileAsItsOutputAndErrorOnly) {
  const std::string output =
      output_of(tool("for d in /proc/$$/fd/*; do [ \"$(readlink $d)\" = \"$1\" ] && echo ${d##*/}; "
                     "done"),
                scratch_("out.txt"));
  EXPECT_EQ(output, "1\n2\n");
}

TEST_F(ProcessTest, TheOutputFileStaysOpenHereUntilTheToolHasEnded) {
  const std::string output =
      output_of(tool("for look in 1 2 3 4 5 6 7 8 9 10; do\n"
                     "  readlink /proc/$PPID/fd/* | grep -qx \"$1\" || { echo closed; exit; }\n"
                     "  sleep 0.01\n"
                     "done\n"
                     "echo open\n"),
                scratch_("out.txt"));
  EXPECT_EQ(output, "open\n");
}

TEST_F(ProcessTest, AHundredRunsLeakNoDescriptor) {
  const std::ptrdiff_t before = open_descriptors();
  for (int i = 0; i < 100; ++i) {
    Process process("/bin/true", "");
    if (i % 2 == 0) process.redirect_to_file(scratch_(i % 4 == 0 ? "out.txt" : "nowhere/out.txt"));
    process.start();
  }
  EXPECT_EQ(open_descriptors(), before);
}

// Which of the descriptors 0 to 2 the caller has closed, a bit each.
class ProcessClosedDescriptorsTest : public ProcessTest,
                                     public ::testing::WithParamInterface<int> {};

TEST_P(ProcessClosedDescriptorsTest, OutputAndErrorArriveAndTheDescriptorsStayClosed) {
  const std::string command = tool("echo out; echo err >&2");
  EXPECT_EQ(run_in_child([&] {
              for (int d = 0; d <= 2; ++d) {
                if (GetParam() & 1 << d) close(d);
              }
              EXPECT_EQ(output_of(command, ""), "out\nerr\n");
              for (int d = 0; d <= 2; ++d) EXPECT_EQ(is_open(d), !(GetParam() & 1 << d)) << d;
            }),
            kChildSucceeded);
  EXPECT_EQ(read_file(scratch_("out.txt")), "out\nerr\n");
}

INSTANTIATE_TEST_SUITE_P(EveryCombination, ProcessClosedDescriptorsTest, ::testing::Range(0, 8));

TEST_F(ProcessTest, OutputAndErrorArriveWhenAllAreClosedButAFileHeldAt0) {
  const std::string command = tool("echo out; echo err >&2");
  EXPECT_EQ(run_in_child([&] {
              for (int d = 0; d <= 2; ++d) close(d);
              const int held = open(scratch_("out.txt").c_str(), O_WRONLY | O_CREAT, 0600);
              EXPECT_EQ(held, 0);
              Process process(command, "");
              process.redirect_to_file(scratch_("out.txt"));
              process.start();
              EXPECT_TRUE(is_open(0));
              EXPECT_FALSE(is_open(1));
              EXPECT_FALSE(is_open(2));
            }),
            kChildSucceeded);
  EXPECT_EQ(read_file(scratch_("out.txt")), "out\nerr\n");
}

}  // namespace
