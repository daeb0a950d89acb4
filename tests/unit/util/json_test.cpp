#include "util/json.h"

#include <gtest/gtest.h>

#include "platform/c_handles.h"

namespace corvane {
namespace {

TEST(JsonText, RoundedNumbersStayShort) {
  const JsonPtr root(json_pack("{s:f,s:f,s:i}", "a", 4.98516, "b", 0.1, "c", 3));
  EXPECT_EQ(json_text(root.get()), R"({"a":4.98516,"b":0.1,"c":3})");
}

TEST(JsonText, TakesFlags) {
  const JsonPtr text(json_string("\xC3\xA4"));
  EXPECT_EQ(json_text(text.get(), JSON_ENCODE_ANY | JSON_ENSURE_ASCII), R"("\u00E4")");
}

TEST(Json, LosesItsEscapedNulsOnly) {
  EXPECT_EQ(without_nul(R"({"a":"x\u0000y","b":"\\u0000","c":"\\\u0000"})"),
            R"({"a":"x\ufffdy","b":"\\u0000","c":"\\\ufffd"})");
}

}  // namespace
}  // namespace corvane
