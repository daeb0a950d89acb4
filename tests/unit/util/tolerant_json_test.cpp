#include "util/tolerant_json.h"

#include <gtest/gtest.h>
#include <jansson.h>

#include "platform/c_handles.h"

namespace corvane {
namespace {

TEST(TolerantJson, LeavesWhatIsSound) {
  for (const std::string json :
       {"", "{}", R"({"a":"\u00e9\\u0000\ud83d\ude00\"\n"})", R"({"a":"é😀"})", "\\", "\\u", "\\u12",
        "\\u12g4", R"("\\\\u0000")", R"("\uD7FF\uE000")"}) {
    EXPECT_EQ(tolerant_json(json), json);
  }
}

TEST(TolerantJson, ReplacesWhatIsRefused) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {R"("\u0000")", R"("\uFFFD")"},
      {R"("a\\\u0000b")", R"("a\\\uFFFDb")"},
      {R"("\ud800")", R"("\uFFFD")"},
      {R"("\udBFFx")", R"("\uFFFDx")"},
      {R"("\udc00\uDFFF")", R"("\uFFFD\uFFFD")"},
      {R"("\ud800\ud83d\ude00\u0000")", R"("\uFFFD\ud83d\ude00\uFFFD")"},
      {R"("\ud83d\ud83d")", R"("\uFFFD\uFFFD")"},
      {R"("\ud83d\u0041")", R"("\uFFFD\u0041")"},
      {"\"\xE9t\xE9\"", "\"\xEF\xBF\xBDt\xEF\xBF\xBD\""},
  };
  for (const auto& [json, expected] : cases) {
    EXPECT_EQ(tolerant_json(json), expected);
    const JsonPtr read(json_loads(tolerant_json(json).c_str(), JSON_DECODE_ANY, nullptr));
    EXPECT_TRUE(read) << json;
    EXPECT_FALSE(JsonPtr(json_loads(json.c_str(), JSON_DECODE_ANY, nullptr))) << json;
  }
}

}  // namespace
}  // namespace corvane
