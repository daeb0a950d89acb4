#include "embedded_host/access_log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <system_error>

#include "tests/support/in_child.h"
#include "tests/support/scratch_dir.h"

namespace corvane::host {
namespace {

using corvane::test::read_file;
using corvane::test::ScratchDir;

AccessRecord record(const std::string& target) {
  return {.client = "127.0.0.1:4711",
          .certificate = "host",
          .method = "GET",
          .target = target,
          .status = 200,
          .bytes = 51342,
          .duration = std::chrono::milliseconds(3)};
}

TEST(AccessLog, ARequestIsALine) {
  const ScratchDir dir;
  AccessLog(dir("log")).write(record("/corvane/admin/jobs?a=b"));
  EXPECT_THAT(read_file(dir("log")),
              ::testing::MatchesRegex("[-0-9]+T[:0-9]+\\.000Z 127\\.0\\.0\\.1:4711 host "
                                      "\"GET /corvane/admin/jobs\\?a=b\" 200 51342 3ms\n"));
}

TEST(AccessLog, WhatWasSentCannotForgeALine) {
  const ScratchDir dir;
  AccessLog(dir("log")).write(record("/x\n2026-01-31T00:00:00.000Z"));
  EXPECT_THAT(read_file(dir("log")), ::testing::HasSubstr("/x\\x0a2026"));
}

TEST(AccessLog, IsContinued) {
  const ScratchDir dir;
  for (int i = 0; i < 2; ++i) AccessLog(dir("log")).write(record("/x"));
  const std::string text = read_file(dir("log"));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
}

TEST(AccessLog, ItsFileMayHaveAnyDescriptorAndIsClosedAgain) {
  const ScratchDir dir;
  const auto write_without_standard_input = [&] {
    umask(0);
    close(STDIN_FILENO);
    AccessLog(dir("log")).write(record("/x"));
    EXPECT_LT(fcntl(STDIN_FILENO, F_GETFD), 0);
    return 0;
  };
  EXPECT_EQ(corvane::test::in_child(write_without_standard_input), 0);
  EXPECT_THAT(read_file(dir("log")), ::testing::HasSubstr("/x"));
  EXPECT_EQ(std::filesystem::status(dir("log")).permissions(), std::filesystem::perms(0640));
}

TEST(AccessLog, WithoutAPathNothingIsWritten) { AccessLog("").write(record("/x")); }

TEST(AccessLog, AFileThatCannotBeOpenedIsAnError) {
  const ScratchDir dir;
  EXPECT_THROW(AccessLog(dir("no/such")), std::system_error);
}

}  // namespace
}  // namespace corvane::host
