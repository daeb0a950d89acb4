#include "util/json.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <tuple>
#include <utility>

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

TEST(Json, ABackslashAtTheEndStays) { EXPECT_EQ(without_nul("a\\"), "a\\"); }

TEST(JsonObject, IsNotLongerThanTheMost) {
  EXPECT_TRUE(parse_json_object("{}", 2));
  EXPECT_FALSE(parse_json_object("{}", 1));
  EXPECT_FALSE(parse_json_object("[]", 2));
  EXPECT_FALSE(parse_json_object("{", 2));
  EXPECT_TRUE(parse_json_object(R"({"a":"\u0000"})", 100));
}

TEST(JsonMembers, AreThoseOfTheirType) {
  const JsonPtr root = parse_json_object(R"({"t":"text","i":-7})", 100);
  EXPECT_EQ(text_member(root.get(), "t"), "text");
  EXPECT_EQ(text_member(root.get(), "i"), "");
  EXPECT_EQ(text_member(root.get(), "none"), "");
  EXPECT_EQ(integer_member(root.get(), "i"), -7);
  EXPECT_EQ(integer_member(root.get(), "t"), 0);
}

TEST(JsonMembers, ThatAreNoNumberAreReadAs0) {
  const JsonPtr root = parse_json_object(R"({"t":"text","i":-7,"r":2.5})", 100);
  for (const auto& [name, is_number, expected] :
       {std::tuple("i", true, -7.0), {"r", true, 2.5}, {"t", false, 0.0}, {"none", false, 0.0}}) {
    double number = 9;
    EXPECT_EQ(read_number(root.get(), name, number), is_number) << name;
    EXPECT_EQ(number, expected) << name;
  }
}

TEST(JsonMembers, AreWrittenEachAsItsType) {
  const JsonPtr root(json_object());
  put(root.get(), "view", std::string_view("a\xFFz", 3));
  put(root.get(), "text", "b");
  put(root.get(), "integer", std::int64_t{-3});
  put(root.get(), "real", 0.5);
  put(root.get(), "infinite", std::numeric_limits<double>::infinity());
  put(root.get(), "nan", std::numeric_limits<double>::quiet_NaN());
  put(root.get(), "yes", true);
  put(root.get(), "no", false);
  put_known(root.get(), "known", 1);
  put_known(root.get(), "unknown", 0);
  JsonPtr list(json_array());
  append(list.get(), JsonPtr(json_integer(1)));
  append(list.get(), JsonPtr(json_integer(2)));
  put(root.get(), "list", std::move(list));
  EXPECT_EQ(json_text(root.get()),
            "{\"view\":\"a\xEF\xBF\xBDz\",\"text\":\"b\",\"integer\":-3,\"real\":0.5,"
            "\"infinite\":null,\"nan\":null,\"yes\":true,\"no\":false,\"known\":1,"
            "\"unknown\":null,\"list\":[1,2]}");
}

TEST(JsonMembers, AnAmountHasSixDigitsAndIsAnIntegerBelow1e15) {
  for (const auto& [number, text] : {std::pair(1234567.0, "1234570"),
                                     {-3.0, "-3"},
                                     {0.1234567, "0.123457"},
                                     {-2.5, "-2.5"},
                                     {9.99999e14, "999999000000000"},
                                     {1e15, "1e15"},
                                     {1.1e15, "1.1e15"},
                                     {-1e15, "-1e15"}}) {
    const JsonPtr root(json_object());
    put_amount(root.get(), "a", number);
    EXPECT_EQ(json_text(root.get()), std::string(R"({"a":)") + text + "}");
  }
}

TEST(JsonForTerminal, EscapesWhatControlsIt) {
  const JsonPtr root(json_object());
  put(root.get(), "a", "\x7F\x7Fx\x7F\xC3\xA4\n");
  EXPECT_EQ(json_for_terminal(root.get()), "{\n \"a\": \"\\u007f\\u007fx\\u007f\\u00E4\\n\"\n}\n");
}

TEST(QuotedJson, IsATextByItself) { EXPECT_EQ(quoted_json("a\"b\xFF"), "\"a\\\"b\xEF\xBF\xBD\""); }

}  // namespace
}  // namespace corvane
