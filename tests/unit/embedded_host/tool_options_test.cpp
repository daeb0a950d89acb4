#include "embedded_host/tool_options.h"

#include <gtest/gtest.h>

namespace corvane::host {
namespace {

constexpr OptionForm kForms[] = {{"-X", false, false}, {"-d", true, true}, {"-e", true, false}};

ToolOptions scan(const std::vector<std::string_view>& words) { return ToolOptions(kForms, words); }

std::string complaint(const std::vector<std::string_view>& words) {
  try {
    scan(words);
    return "read";
  } catch (const UsageError& error) {
    return error.what();
  }
}

// The status of a tool that is called like this; what it printed is in `out` and `err`.
int run(std::vector<std::string> words, const std::function<void(const ToolOptions&)>& work,
        std::string& out, std::string& err) {
  words.insert(words.begin(), "/some/where/tool");
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  const int status =
      run_tool(static_cast<int>(argv.size()), argv.data(), "usage: tool\n", kForms, work);
  out = ::testing::internal::GetCapturedStdout();
  err = ::testing::internal::GetCapturedStderr();
  return status;
}

TEST(ToolOptions, ReadsOptionsInAnyOrder) {
  const std::vector<std::string_view> words = {"-e", "-1", "-X", "-d", "7"};
  const ToolOptions options(kForms, words);
  EXPECT_EQ(options.integer("-d"), 7);
  EXPECT_EQ(options.integer("-e"), -1) << "a value may begin with a dash";
  EXPECT_EQ(options.text("-X", "not given"), "");
  EXPECT_EQ(scan({"-d", "1"}).text("-e", "none"), "none");
}

TEST(ToolOptions, SaysWhatIsWrong) {
  EXPECT_EQ(complaint({}), "-d is missing");
  EXPECT_EQ(complaint({"-d"}), "-d: the value is missing");
  EXPECT_EQ(complaint({"-d", "1", "-d", "2"}), "-d: given more than once");
  EXPECT_EQ(complaint({"-d", "1", "stray"}), "unknown option 'stray'");
  EXPECT_EQ(complaint({"-d", "1", "-z"}), "unknown option '-z'");
}

TEST(ToolOptions, NumbersAreWholeNumbers) {
  EXPECT_EQ(whole_number("0042", "-d"), 42);
  for (const char* text : {"", "x", "1x", " 1", "1.0", "+1", "99999999999999999999"}) {
    EXPECT_THROW(whole_number(text, "-d"), UsageError) << text;
  }
}

TEST(RunTool, HelpIsPrinted) {
  std::string out;
  std::string err;
  EXPECT_EQ(run(
                {"--help"}, [](const ToolOptions&) { FAIL(); }, out, err),
            0);
  EXPECT_EQ(out, "usage: tool\n");
  EXPECT_EQ(err, "");
}

TEST(RunTool, WorkIsDone) {
  std::string out;
  std::string err;
  EXPECT_EQ(run(
                {"-d", "5"},
                [](const ToolOptions& options) { std::printf("%s", options.text("-d").c_str()); },
                out, err),
            0);
  EXPECT_EQ(out, "5");
  EXPECT_EQ(err, "");
}

TEST(RunTool, ErrorsGoToStandardError) {
  std::string out;
  std::string err;
  EXPECT_EQ(run(
                {}, [](const ToolOptions&) {}, out, err),
            2);
  EXPECT_EQ(err, "tool: -d is missing (see --help)\n");
  EXPECT_EQ(
      run(
          {"-d", "1"}, [](const ToolOptions&) { throw std::runtime_error("no luck"); }, out, err),
      1);
  EXPECT_EQ(err, "tool: no luck\n");
  EXPECT_EQ(out, "");
}

TEST(RunTool, MayBeCalledWithNoName) {
  char* none[] = {nullptr};
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(run_tool(0, none, "usage: tool\n", kForms, [](const ToolOptions&) {}), 2);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), ": -d is missing (see --help)\n");
}

}  // namespace
}  // namespace corvane::host
