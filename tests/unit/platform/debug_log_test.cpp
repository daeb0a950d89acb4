#include "platform/debug_log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "platform/daemon_mark.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/in_child.h"
#include "tests/support/scratch_dir.h"

using corvane::test::FileSizeLimit;
using corvane::test::in_child;
using corvane::test::read_file;
using corvane::test::ScratchDir;
using corvane::test::start_child;
using corvane::test::status_of;

namespace {

constexpr std::size_t kMebibyte = std::size_t{1} << 20;

class DebugLog : public ::testing::Test {
 protected:
  int open_log(const char* name = "test") {
    int status = 0;
    const int descriptor = open_debug_log(scratch().c_str(), "test", name, 0644, &status);
    EXPECT_EQ(status, 0);
    return descriptor;
  }

  std::string content(const char* name = "test") { return read_file(scratch(name)); }

  // What follows "time pid level " in the only record of the log.
  std::string only_text() {
    const std::string all = content();
    const std::regex prefix(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z \d+ \d+ )");
    std::smatch match;
    if (!std::regex_search(all, match, prefix)) return "no record: " + all.substr(0, 200);
    return match.suffix();
  }

  ScratchDir scratch;
};

std::vector<std::string> lines_of(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace

TEST_F(DebugLog, RecordHoldsTimeProcessLevelTagAndText) {
  open_log();
  const auto before = std::chrono::system_clock::now();
  logmsgf(4, "cvanomalymgmt", "Successfully %s the %s", "started", "service");
  const auto after = std::chrono::system_clock::now();
  const std::regex form(
      R"((\d{4})-(\d\d)-(\d\d)T(\d\d):(\d\d):(\d\d)\.(\d{3})Z (\d+) 4 cvanomalymgmt: )"
      R"(Successfully started the service\n)");
  const std::string record = content();
  std::smatch match;
  ASSERT_TRUE(std::regex_match(record, match, form)) << record;
  std::tm date{};
  date.tm_year = std::stoi(match[1]) - 1900;
  date.tm_mon = std::stoi(match[2]) - 1;
  date.tm_mday = std::stoi(match[3]);
  date.tm_hour = std::stoi(match[4]);
  date.tm_min = std::stoi(match[5]);
  date.tm_sec = std::stoi(match[6]);
  const std::chrono::milliseconds logged(timegm(&date) * 1000L + std::stoi(match[7]));
  const auto in_ms = [](auto time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch());
  };
  EXPECT_GE(logged, in_ms(before));
  EXPECT_LE(logged, in_ms(after));
  EXPECT_EQ(match[8], std::to_string(getpid()));
}

TEST_F(DebugLog, PlainTextIsNotInterpreted) {
  open_log();
  logmsg(16, "tag", "100%s of %d%%n");
  EXPECT_EQ(only_text(), "tag: 100%s of %d%%n\n");
}

TEST_F(DebugLog, TagPast256CharactersIsCut) {
  open_log();
  logmsg(2, std::string(257, 't').c_str(), "text");
  EXPECT_EQ(only_text(), std::string(256, 't') + ": text\n");
}

// The "C" locale cannot convert this character.
TEST_F(DebugLog, TextThatCannotBeFormattedIsLoggedAsItsPattern) {
  open_log();
  logmsgf(2, "tag", "%ls of 100%%", L"\u65e5");
  EXPECT_EQ(only_text(), "tag: %ls of 100%%\n");
}

TEST_F(DebugLog, DaemonIsMarkedBehindItsProcessId) {
  open_log();
  corvane::mark_daemon(true);
  logmsg(2, "tag", "one");
  corvane::mark_daemon(false);
  logmsg(8, "tag", "two");
  const std::vector<std::string> lines = lines_of(content());
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_TRUE(lines[0].ends_with(" " + std::to_string(getpid()) + "d 2 tag: one")) << lines[0];
  EXPECT_TRUE(lines[1].ends_with(" " + std::to_string(getpid()) + " 8 tag: two")) << lines[1];
}

TEST_F(DebugLog, ContinuationLinesAreIndented) {
  open_log();
  logmsg(4, "tag", "\nAPI execution succeeded \n");
  EXPECT_EQ(only_text(), "tag: \n\tAPI execution succeeded \n\t\n");
}

TEST_F(DebugLog, LoggedTextCannotForgeARecord) {
  open_log();
  const std::string forged = "2026-01-31T04:05:06.789Z 1 4 cvanomalymgmt: all is well";
  logmsgf(16, "tag", "server said: x\n%s\r%s\r\n%s", forged.c_str(), forged.c_str(),
          forged.c_str());
  EXPECT_EQ(only_text(),
            "tag: server said: x\n\t" + forged + "\r\t" + forged + "\r\n\t" + forged + "\n");
}

TEST_F(DebugLog, TextsAroundTheLocalBuffersSizesArriveWhole) {
  open_log();
  for (const std::size_t size :
       {0U, 1U, 4094U, 4095U, 4096U, 4097U, 8000U, 8191U, 8192U, 100'000U}) {
    const std::string text(size, 'x');
    logmsgf(2, "f", "%s", text.c_str());
    logmsg(2, "p", text.c_str());
  }
  const std::vector<std::string> lines = lines_of(content());
  ASSERT_EQ(lines.size(), 20U);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::size_t text = lines[i].find(": ") + 2;
    EXPECT_EQ(lines[i].find_first_not_of('x', text), std::string::npos) << i;
  }
  EXPECT_EQ(lines[19].size() - lines[18].size(), 0U);
  EXPECT_EQ(lines[18].size() - lines[0].size(), 100'000U);
  EXPECT_EQ(lines[6].size() - lines[4].size(), 1U);
}

TEST_F(DebugLog, TextOfNothingButLineEndsFits) {
  open_log();
  logmsg(2, "tag", std::string(8000, '\n').c_str());
  std::string expected = "tag: ";
  for (int i = 0; i < 8000; ++i) expected += "\n\t";
  EXPECT_EQ(only_text(), expected + "\n");
}

TEST_F(DebugLog, TextPastOneMebibyteIsCutWithAMark) {
  open_log();
  logmsg(2, "tag", std::string(kMebibyte + 1, 'x').c_str());
  EXPECT_EQ(only_text(), "tag: " + std::string(kMebibyte, 'x') + " [cut]\n");
}

TEST_F(DebugLog, FormattedTextPastOneMebibyteIsCutWithAMark) {
  open_log();
  logmsgf(2, "tag", "%s%s", std::string(kMebibyte, 'x').c_str(), "y");
  EXPECT_EQ(only_text(), "tag: " + std::string(kMebibyte, 'x') + " [cut]\n");
}

TEST_F(DebugLog, TextOfOneMebibyteIsNotCut) {
  open_log();
  logmsgf(2, "tag", "%s", std::string(kMebibyte, 'x').c_str());
  EXPECT_EQ(only_text(), "tag: " + std::string(kMebibyte, 'x') + "\n");
}

TEST_F(DebugLog, ErrnoIsKept) {
  open_log();
  errno = ENOTTY;
  logmsgf(2, "tag", "%s", std::string(100'000, 'x').c_str());
  EXPECT_EQ(errno, ENOTTY);
  EXPECT_EQ(in_child([] {
              for (int descriptor = 3; descriptor < 64; ++descriptor) close(descriptor);
              errno = ENOTTY;
              logmsg(2, "tag", "the descriptor is closed");
              EXPECT_EQ(errno, ENOTTY);
              return 0;
            }),
            0);
}

// These two are run by tests of DebugLog once more, in a process that surely has not opened a log.

TEST(DebugLogFresh, LogsNowhere) {
  errno = ENOTTY;
  logmsg(16, "tag", "text");
  logmsgf(16, "tag", "%d", 1);
  EXPECT_EQ(errno, ENOTTY);
}

TEST(DebugLogFresh, OpensAboveTwo) {
  const ScratchDir scratch;
  EXPECT_EQ(in_child([&scratch] {
              const int out = dup(1);  // for the expectations' messages
              for (int descriptor = 0; descriptor <= 2; ++descriptor) close(descriptor);
              int status = 0;
              const int log = open_debug_log(scratch().c_str(), "test", "test", 0644, &status);
              const bool standard_ones_are_free = open("/dev/null", O_RDONLY) == 0;
              dup2(out, 1);
              EXPECT_EQ(status, 0);
              EXPECT_GE(log, 3);
              EXPECT_EQ(fcntl(log, F_GETFD), FD_CLOEXEC);
              EXPECT_TRUE(standard_ones_are_free);
              logmsg(2, "tag", "text");
              return 0;
            }),
            0);
  EXPECT_TRUE(read_file(scratch("test")).ends_with("tag: text\n"));
}

namespace {

int in_fresh_process(const std::string& test) {
  return in_child([&test] {
    const std::string filter = "--gtest_filter=DebugLogFresh." + test;
    execl("/proc/self/exe", "platform_test", filter.c_str(), "--gtest_brief=1", nullptr);
    return 98;
  });
}

}  // namespace

TEST_F(DebugLog, WithoutAnOpenLogNothingHappens) { EXPECT_EQ(in_fresh_process("LogsNowhere"), 0); }

TEST_F(DebugLog, DescriptorIsAboveTwoWhenTheStandardOnesAreClosed) {
  EXPECT_EQ(in_fresh_process("OpensAboveTwo"), 0);
}

TEST_F(DebugLog, MissingDirectoryGivesANegativeStatusAndIsNotMade) {
  int status = 0;
  EXPECT_LT(open_debug_log(scratch("missing").c_str(), "test", "test", 0644, &status), 0);
  EXPECT_LT(status, 0);
  EXPECT_FALSE(std::filesystem::exists(scratch("missing")));
}

TEST_F(DebugLog, FailedSecondOpenKeepsTheFirstLog) {
  open_log();
  int status = 0;
  open_debug_log(scratch("missing").c_str(), "test", "test", 0644, &status);
  logmsg(2, "tag", "still here");
  EXPECT_EQ(only_text(), "tag: still here\n");
}

TEST_F(DebugLog, SecondOpenReplacesTheFirstUnderTheSameDescriptor) {
  const int first = open_log("first");
  logmsg(2, "tag", "one");
  const int second = open_log("second");
  logmsg(2, "tag", "two");
  EXPECT_EQ(first, second);
  EXPECT_EQ(lines_of(content("first")).size(), 1U);
  EXPECT_TRUE(content("second").ends_with("tag: two\n"));
  EXPECT_EQ(fcntl(second, F_GETFD), FD_CLOEXEC);
  EXPECT_NE(fcntl(second, F_GETFL) & O_APPEND, 0);
}

TEST_F(DebugLog, ReopeningDoesNotUseUpDescriptors) {
  open_log();
  const int before = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(before);
  for (int i = 0; i < 10; ++i) open_log();
  const int after = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(after);
  EXPECT_EQ(before, after);
}

TEST_F(DebugLog, FileIsMadeWithTheModeAndAppendedTo) {
  const mode_t mask = umask(022);
  int status = 0;
  open_debug_log(scratch().c_str(), "test", "private", 0600, &status);
  open_log();
  umask(mask);
  struct stat info {};
  ASSERT_EQ(stat(scratch("private").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777U, 0600U);
  ASSERT_EQ(stat(scratch("test").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777U, 0644U);
  logmsg(2, "tag", "one");
  open_log();
  logmsg(2, "tag", "two");
  EXPECT_EQ(lines_of(content()).size(), 2U);
}

TEST_F(DebugLog, RecordsOfManyProcessesDoNotMix) {
  constexpr int kProcesses = 6;
  constexpr int kRecords = 400;
  open_log();
  int gate[2];  // opens, for all at once, when its write end is closed
  ASSERT_EQ(pipe(gate), 0);
  std::vector<pid_t> children;
  for (int child = 0; child < kProcesses; ++child) {
    children.push_back(start_child([child, &gate] {
      close(gate[1]);
      char byte = 0;
      if (read(gate[0], &byte, 1) != 0) return 90;
      const std::string filling(static_cast<std::size_t>(50 + child * 2000), 'a');
      for (int i = 0; i < kRecords; ++i) logmsgf(2, "tag", "%d %d %s.", child, i, filling.c_str());
      return 0;
    }));
  }
  close(gate[0]);
  close(gate[1]);
  for (const pid_t child : children) ASSERT_EQ(status_of(child), 0);
  std::map<int, int> next;
  for (const std::string& line : lines_of(content())) {
    std::istringstream in(line);
    std::string time, process, level, tag, filling;
    int child = -1;
    int number = -1;
    in >> time >> process >> level >> tag >> child >> number >> filling;
    ASSERT_EQ(time.size(), std::string("2026-01-31T04:05:06.789Z").size()) << time;
    ASSERT_EQ(process, std::to_string(children.at(static_cast<std::size_t>(child))));
    ASSERT_EQ(number, next[child]++);
    ASSERT_EQ(filling, std::string(static_cast<std::size_t>(50 + child * 2000), 'a') + ".");
  }
  for (int child = 0; child < kProcesses; ++child) EXPECT_EQ(next[child], kRecords);
}

TEST_F(DebugLog, SignalHandlerMayLogWhileTheProgramLogs) {
  EXPECT_EQ(in_child([this] {
              open_log();
              signal(SIGALRM, [](int) { logmsgf(4, "handler", "signal %d", SIGALRM); });
              const itimerval often{{0, 200}, {0, 200}};
              setitimer(ITIMER_REAL, &often, nullptr);
              const std::string large(20'000, 'x');  // takes the heap
              for (int i = 0; i < 3000; ++i) {
                logmsgf(2, "main", "%s.", i % 2 == 0 ? "short" : large.c_str());
              }
              const itimerval never{};
              setitimer(ITIMER_REAL, &never, nullptr);
              return 0;
            }),
            0);
  const std::regex form(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z \d+ [24] )"
                        R"((main: (short|x+)\.|handler: signal \d+))");
  int from_main = 0;
  int from_handler = 0;
  for (const std::string& line : lines_of(content())) {
    const std::string start = line.substr(0, 100);
    if (line.size() > 20'000) {
      EXPECT_EQ(line.find(": x"), line.find(": ")) << start;
      EXPECT_TRUE(line.ends_with("x."));
    } else {
      EXPECT_TRUE(std::regex_match(line, form)) << line;
    }
    (line.find("handler: ") == std::string::npos ? from_main : from_handler) += 1;
  }
  EXPECT_EQ(from_main, 3000);
  EXPECT_GT(from_handler, 20);
}

TEST_F(DebugLog, RecordCutByAFullDiskDoesNotSwallowTheNext) {
  for (const std::size_t room : {100U, 1U}) {
    const std::string name = "room for " + std::to_string(room);
    EXPECT_EQ(in_child([&] {
                open_log(name.c_str());
                {
                  const FileSizeLimit full(room);
                  logmsg(2, "tag", std::string(200, 'x').c_str());
                  logmsg(2, "tag", "lost");
                }
                logmsg(2, "tag", "after");
                logmsg(2, "tag", "last");
                return 0;
              }),
              0);
    const std::vector<std::string> lines = lines_of(content(name.c_str()));
    ASSERT_EQ(lines.size(), 3U) << name;
    EXPECT_EQ(lines[0].size(), room);
    EXPECT_TRUE(lines[1].ends_with("2 tag: after")) << lines[1];
    EXPECT_TRUE(lines[2].ends_with("2 tag: last")) << lines[2];
  }
}
