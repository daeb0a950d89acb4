#include "embedded_host/fault.h"

#include <gmock/gmock.h>

#include "platform/c_handles.h"
#include "tests/support/heap.h"
#include "tests/support/scratch_dir.h"

namespace corvane::host {
namespace {

using corvane::test::ScratchDir;
using corvane::test::write_file;

std::string complaint(const std::string& text) {
  try {
    parse_faults(text);
    return "read";
  } catch (const BadFaultFile& error) {
    return error.what();
  }
}

TEST(Fault, ReadsEveryAction) {
  const auto faults = parse_faults(
      "status 503\n\ngarbage\ntruncate count 2\ncorvane/admin/jobs cut skip 1\nhang 30\n"
      "null-end-time\ncorvane/admin/jobs null-end-time 4 count 3 skip 2\n");
  ASSERT_EQ(faults.size(), 7U);
  EXPECT_EQ(faults[0].action, FaultAction::kStatus);
  EXPECT_EQ(faults[0].argument, 503);
  EXPECT_EQ(faults[0].path, "");
  EXPECT_FALSE(faults[0].count);
  EXPECT_EQ(faults[1].action, FaultAction::kGarbage);
  EXPECT_EQ(faults[2].action, FaultAction::kTruncate);
  EXPECT_EQ(faults[2].count, 2);
  EXPECT_EQ(faults[3].action, FaultAction::kCut);
  EXPECT_EQ(faults[3].path, "corvane/admin/jobs");
  EXPECT_EQ(faults[3].skip, 1);
  EXPECT_EQ(faults[4].action, FaultAction::kHang);
  EXPECT_EQ(faults[4].argument, 30);
  EXPECT_EQ(faults[5].argument, 0);
  EXPECT_EQ(faults[6].argument, 4);
  EXPECT_EQ(faults[6].count, 3);
  EXPECT_EQ(faults[6].skip, 2);
}

TEST(Fault, SaysWhatItCannotRead) {
  EXPECT_EQ(complaint("explode"), "line 1: no action after 'explode'");
  EXPECT_EQ(complaint("garbage\ncorvane/x explode"), "line 2: unknown action 'explode'");
  EXPECT_EQ(complaint("status"), "line 1: expected a number from 100 to 599, not ''");
  EXPECT_EQ(complaint("status 600"), "line 1: expected a number from 100 to 599, not '600'");
  EXPECT_EQ(complaint("status 5x"), "line 1: expected a number from 100 to 599, not '5x'");
  EXPECT_EQ(complaint("garbage 5"), "line 1: only skip and count may follow, not '5'");
  EXPECT_EQ(complaint("status 500 twice"), "line 1: unknown word 'twice'");
  EXPECT_EQ(complaint("hang"), "line 1: expected a number from 0 to 3600, not ''");
  EXPECT_EQ(complaint("null-end-time x"), "line 1: expected a number from 0 to 1000000, not 'x'");
  EXPECT_EQ(complaint("status 500 skip x"),
            "line 1: expected a number from 0 to 1000000000, not 'x'");
  EXPECT_EQ(complaint("status 100\nstatus 599\nhang 0 skip 0\nhang 3600 count 1\n"
                      "null-end-time 1000000 skip 1000000000"),
            "read");
  EXPECT_EQ(complaint("status 500 count 0"),
            "line 1: expected a number from 1 to 1000000000, not '0'");
}

TEST(Fault, ChangesTheReply) {
  const auto changed = [](const std::string& fault, const std::string& body) {
    WebReply reply{.status = 200, .body = body};
    apply_fault(parse_faults(fault).at(0), reply);
    return reply;
  };
  EXPECT_EQ(changed("status 500", "{}").status, 500);
  EXPECT_EQ(changed("status 500", "{}").body,
            R"({"error":{"status":500,"reason":"answered on purpose"}})");
  const WebReply garbage = changed("garbage", "{}");
  EXPECT_EQ(garbage.status, 200);
  EXPECT_EQ(JsonPtr(json_loadb(garbage.body.data(), garbage.body.size(), 0, nullptr)), nullptr);
  EXPECT_EQ(changed("truncate", "12345678").body, "1234");
  const std::string jobs =
      R"({"data":[{"attributes":{"endTime":"a"}},{"attributes":{"endTime":"b"}}]})";
  EXPECT_EQ(changed("null-end-time", jobs).body,
            R"({"data":[{"attributes":{"endTime":null}},{"attributes":{"endTime":"b"}}]})");
  EXPECT_EQ(changed("null-end-time 1", jobs).body,
            R"({"data":[{"attributes":{"endTime":"a"}},{"attributes":{"endTime":null}}]})");
  EXPECT_EQ(changed("null-end-time 2", jobs).body, jobs);
  EXPECT_EQ(changed("null-end-time", "no JSON").body, "no JSON");
  const std::string names = R"([{"clientName":"a"},{"clientName":"b"}])";
  EXPECT_EQ(changed("surrogate", names).body, R"([{"clientName":"\ud800a"},{"clientName":"b"}])");
  EXPECT_EQ(changed("nul 1", names).body, R"([{"clientName":"a"},{"clientName":"\u0000b"}])");
  EXPECT_EQ(changed("latin1 1", names).body,
            "[{\"clientName\":\"a\"},{\"clientName\":\"\xe9"
            "b\"}]");
  EXPECT_EQ(changed("latin1 2", names).body, names);
  EXPECT_EQ(changed("cut", jobs).body, jobs);
  EXPECT_EQ(changed("hang 1", jobs).body, jobs);
}

TEST(Fault, LeavesNothingOfTheReplyInMemory) {
  const Fault fault = parse_faults("null-end-time").at(0);
  EXPECT_EQ(corvane::test::bytes_left_by([&] {
              WebReply reply{.status = 200, .body = R"({"data":[{"attributes":{"endTime":1}}]})"};
              apply_fault(fault, reply);
            }),
            0);
}

class FaultFileTest : public ::testing::Test {
 protected:
  // Which of the next requests of `path` meet a fault: "x" for each that does, "." for the others.
  std::string hits(int requests, std::string_view path = "/corvane/admin/jobs") {
    std::string shown;
    for (int i = 0; i < requests; ++i) shown += file_.next(path) ? 'x' : '.';
    return shown;
  }

  ScratchDir dir_;
  std::string path_ = dir_("faults");
  FaultFile file_{path_};
};

TEST_F(FaultFileTest, HoldsWhileTheFileIsThere) {
  EXPECT_EQ(hits(1), ".");
  write_file(path_, "status 500\n");
  EXPECT_EQ(hits(3), "xxx");
  std::filesystem::remove(path_);
  EXPECT_EQ(hits(1), ".");
}

TEST_F(FaultFileTest, CountsFromWhenItWasWritten) {
  write_file(path_, "status 500 skip 1 count 2\n");
  EXPECT_EQ(hits(5), ".xx..");
  std::filesystem::remove(path_);
  EXPECT_EQ(hits(1), ".");
  write_file(path_, "status 500 skip 1 count 2\n");
  EXPECT_EQ(hits(5), ".xx..");
}

TEST_F(FaultFileTest, AnotherFileCountsAnewThoughItSaysTheSame) {
  write_file(path_, "status 500 count 2\n");
  EXPECT_EQ(hits(3), "xx.");
  write_file(path_ + ".new", "status 500 count 2\n");
  std::filesystem::rename(path_ + ".new", path_);
  EXPECT_EQ(hits(3), "xx.");
}

TEST_F(FaultFileTest, AFileHoldsAgainAfterABadOneInItsPlace) {
  write_file(path_, "status 500\n");
  EXPECT_EQ(hits(1), "x");
  std::filesystem::rename(path_, path_ + ".aside");
  write_file(path_, "explode now\n");
  EXPECT_THROW(file_.next("/x"), BadFaultFile);
  std::filesystem::rename(path_ + ".aside", path_);
  EXPECT_EQ(hits(1), "x");
}

TEST_F(FaultFileTest, IsReadToItsLastByte) {
  const std::size_t most = (std::size_t{64} << 10) - 1;
  const std::string last = "hang 12";
  write_file(path_, std::string(most - last.size(), '\n') + last);
  EXPECT_EQ(file_.next("/x")->argument, 12);
}

TEST_F(FaultFileTest, TheFirstLineThatFitsIsTaken) {
  write_file(path_, "corvane/catalog status 500\nstatus 401 count 1\ngarbage\n");
  EXPECT_EQ(file_.next("/corvane/catalog/images")->argument, 500);
  EXPECT_EQ(file_.next("/corvane/admin/jobs")->argument, 401);
  EXPECT_EQ(file_.next("/corvane/admin/jobs")->action, FaultAction::kGarbage);
}

TEST_F(FaultFileTest, AFileThatCannotBeReadIsAnError) {
  write_file(path_, "explode now\n");
  for (int i = 0; i < 2; ++i) {
    try {
      file_.next("/x");
      FAIL();
    } catch (const BadFaultFile& error) {
      EXPECT_EQ(error.what(), path_ + ": line 1: unknown action 'now'");
    }
  }
  write_file(path_, std::string(std::size_t{64} << 10, '\n'));
  EXPECT_THROW(file_.next("/x"), BadFaultFile);
  std::filesystem::remove(path_);
  std::filesystem::create_directory(path_);
  EXPECT_THROW(file_.next("/x"), BadFaultFile);
}

}  // namespace
}  // namespace corvane::host
