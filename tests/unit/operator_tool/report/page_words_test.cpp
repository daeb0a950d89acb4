// The page writes numbers, amounts and spans as the terminal does: tests/e2e/test_report.py holds
// report/words.js to the same file.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "finding/words.h"

namespace corvane::ctl {
namespace {

std::string text_of(const std::string& kind, const std::string& value) {
  const double number = std::strtod(value.c_str(), nullptr);
  const auto whole = static_cast<std::int64_t>(number);
  if (kind == "size") return size_text(number);
  if (kind == "number") return number_text(number);
  if (kind == "span") return span_text(whole);
  return kind == "counted" ? counted(whole, "file", "files") : "unknown kind " + kind;
}

TEST(PageWords, AreThoseOfTheTerminal) {
  std::ifstream cases(PAGE_WORDS);
  std::size_t count = 0;
  for (std::string line; std::getline(cases, line); ++count) {
    std::istringstream fields(line);
    std::string kind, value, text;
    std::getline(std::getline(std::getline(fields, kind, '\t'), value, '\t'), text);
    EXPECT_EQ(text_of(kind, value), text) << kind << " " << value;
  }
  EXPECT_GT(count, 50U);
}

}  // namespace
}  // namespace corvane::ctl
