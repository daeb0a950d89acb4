// One run of a tool.
#include <new>

#include "tests/support/scratch_dir.h"
#include "tests/unit/faults/attempt.h"
#include "util/process.h"

namespace corvane::test {
namespace {

constexpr int kNotRun = -1;

class ProcessStart : public FaultTest {
 protected:
  static int attempt(const FaultPoint& point) {
    const ScratchDir scratch;
    write_file(scratch("tool"), "echo all of the output\n");
    write_file(scratch("out"), "");
    int exit_code = kNotRun;
    const int failed = failed_calls_of(
        [&] {
          try {
            Process process("/bin/sh " + scratch("tool"), "and arguments");
            process.redirect_to_file(scratch("out"));
            process.start();
            exit_code = process.exit_code();
          } catch (const std::bad_alloc&) {
            EXPECT_EQ(point.kind, Fault::kAllocation);
          }
        },
        point);
    const std::string output = read_file(scratch("out"));
    EXPECT_TRUE(output.empty() || output == "all of the output\n") << output;
    EXPECT_TRUE(exit_code == 0 || exit_code == kNotRun) << exit_code;
    EXPECT_TRUE(failed > 0 || !output.empty());
    EXPECT_TRUE(output.empty() || exit_code == 0);
    return failed;
  }
};

TEST_P(ProcessStart, LeavesTheWholeOutputOrNone) { try_every_point(attempt); }

INSTANTIATE_TEST_SUITE_P(Every, ProcessStart,
                         ::testing::ValuesIn(once_and_from_then_on({Fault::kOpen, Fault::kFork,
                                                                    Fault::kAllocation})),
                         kind_name);

}  // namespace
}  // namespace corvane::test
