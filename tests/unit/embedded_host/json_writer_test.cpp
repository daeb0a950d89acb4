#include "embedded_host/json_writer.h"

#include <gtest/gtest.h>
#include <jansson.h>

#include "platform/c_handles.h"

using corvane::JsonPtr;
using corvane::host::append_json_real;
using corvane::host::append_json_text;
using corvane::host::JsonObject;
using corvane::host::printable;

namespace {

std::string real(double value) {
  std::string out;
  append_json_real(out, value);
  return out;
}

}  // namespace

TEST(JsonWriter, AnyTextReadsBack) {
  std::string every_byte_once;
  for (int c = 1; c < 0x80; ++c) every_byte_once += static_cast<char>(c);
  for (const std::string& text : {std::string(), std::string("plain"), std::string("\"\\\""),
                                  every_byte_once, std::string("\xc3\xa4\xf0\x9f\x98\x80")}) {
    std::string json;
    append_json_text(json, text);
    const JsonPtr read(json_loadb(json.data(), json.size(), JSON_DECODE_ANY, nullptr));
    ASSERT_NE(read, nullptr) << json;
    EXPECT_EQ(std::string(json_string_value(read.get()), json_string_length(read.get())), text);
  }
}

TEST(JsonWriter, RealsStayReals) {
  EXPECT_EQ(real(1), "1.0");
  EXPECT_EQ(real(-0.5), "-0.5");
  EXPECT_EQ(real(24.8057), "24.8057");
  EXPECT_EQ(real(1e300), "1e+300");
  EXPECT_EQ(real(164294.9265625), "164294.9265625");
}

TEST(JsonWriter, ObjectHoldsItsMembersInOrder) {
  std::string out;
  JsonObject object(out);
  object.add("text", "a\"b");
  object.add("whole", std::int64_t{-9000000000});
  object.add("real", 2.5);
  object.add_json("json", "[1]");
  object.close();
  EXPECT_EQ(out, R"({"text":"a\"b","whole":-9000000000,"real":2.5,"json":[1]})");
}

TEST(JsonWriter, EmptyObject) {
  std::string out;
  JsonObject(out).close();
  EXPECT_EQ(out, "{}");
}

TEST(JsonWriter, PrintableShowsBytes) {
  EXPECT_EQ(printable("a\n\x7f\xff z"), "a\\x0a\\x7f\\xff z");
}
