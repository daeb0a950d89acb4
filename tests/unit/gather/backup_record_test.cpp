#include "gather/backup_record.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <utility>
#include <vector>

#include "platform/c_handles.h"

namespace corvane {
namespace {

// The text of the first value of a JSON array.
std::string text_of(const std::string& json) {
  const JsonPtr root(json_loads(("[" + json + "]").c_str(), 0, nullptr));
  EXPECT_NE(root, nullptr) << json;
  return json_value_to_text(json_array_get(root.get(), 0));
}

TEST(JsonValueToText, GivesAStringAsItIs) {
  EXPECT_EQ(text_of(R"("web01")"), "web01");
  EXPECT_EQ(text_of(R"("")"), "");
  EXPECT_EQ(text_of(R"("  1.50 \u00e9\n")"), "  1.50 \xC3\xA9\n");
}

TEST(JsonValueToText, GivesAnIntegerInDecimal) {
  EXPECT_EQ(text_of("0"), "0");
  EXPECT_EQ(text_of("-17"), "-17");
  EXPECT_EQ(text_of("9223372036854775807"), "9223372036854775807");
  EXPECT_EQ(text_of("-9223372036854775808"), "-9223372036854775808");
}

TEST(JsonValueToText, GivesARealWithSixSignificantDigits) {
  EXPECT_EQ(text_of("1.5e-7"), "1.5e-07");
  EXPECT_EQ(text_of("0.1"), "0.1");
  EXPECT_EQ(text_of("2.0"), "2");
  EXPECT_EQ(text_of("100000.0"), "100000");
  EXPECT_EQ(text_of("1000000.0"), "1e+06");
  EXPECT_EQ(text_of("1234567.0"), "1.23457e+06");
  EXPECT_EQ(text_of("0.0001"), "0.0001");
  EXPECT_EQ(text_of("0.00001"), "1e-05");
}

TEST(JsonValueToText, WritesRealsAsAnOutputStreamDoes) {
  for (const double number : {0.0, -0.0, 1.0 / 3, -2.5e10, 999999.5, 123456.5, 6.02e23, 1e-300,
                              std::numeric_limits<double>::max()}) {
    std::ostringstream stream;
    stream << number;
    const JsonPtr value(json_real(number));
    EXPECT_EQ(json_value_to_text(value.get()), stream.str());
  }
}

TEST(JsonValueToText, GivesTrueAndFalseAsOneAndZero) {
  EXPECT_EQ(text_of("true"), "1");
  EXPECT_EQ(text_of("false"), "0");
}

TEST(JsonValueToText, GivesAnythingElseAsTheEmptyText) {
  EXPECT_EQ(text_of("null"), "");
  EXPECT_EQ(text_of(R"({"a": 1})"), "");
  EXPECT_EQ(text_of("[1, 2]"), "");
  EXPECT_EQ(json_value_to_text(nullptr), "");
}

std::vector<std::pair<std::string, std::string>> members_of(json_t* object) {
  std::vector<std::pair<std::string, std::string>> members;
  for_each_member(object, [&](std::string_view name, const json_t* value) {
    members.emplace_back(name, json_value_to_text(value));
  });
  return members;
}

TEST(ForEachMember, VisitsInDocumentOrderAndOfTwoOfOneNameTheLastValue) {
  const JsonPtr root(json_loads(R"({"b": 1, "a": 2, "c": 3, "b": 4})", 0, nullptr));
  EXPECT_EQ(members_of(root.get()),
            (std::vector<std::pair<std::string, std::string>>{{"b", "4"}, {"a", "2"}, {"c", "3"}}));
}

TEST(ForEachMember, FindsNoneInWhatIsNoObject) {
  const JsonPtr array(json_loads(R"([{"a": 1}])", 0, nullptr));
  EXPECT_TRUE(members_of(array.get()).empty());
  EXPECT_TRUE(members_of(json_null()).empty());
  EXPECT_TRUE(members_of(nullptr).empty());
}

TEST(TextOr, GivesTheTextOrTheFallbackAndInsertsNothing) {
  const BackupRecord record{{"state", "DONE"}, {"status", ""}};
  EXPECT_EQ(text_or(record, "state", "x"), "DONE");
  EXPECT_EQ(text_or(record, "status", "x"), "");
  EXPECT_EQ(text_or(record, "none", "x"), "x");
  EXPECT_EQ(record.size(), 2U);
}

TEST(ToInt, ReadsALargeNumberSentAsARealAsItsFirstDigit) {
  EXPECT_EQ(text_of("123456789.0"), "1.23457e+08");
  EXPECT_EQ(to_int(text_of("123456789.0")), 1);
}

}  // namespace
}  // namespace corvane
