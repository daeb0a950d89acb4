#include "sqlite/value.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <type_traits>

using Altamir::Corvane::UsageReporting::SQLiteDatabase::Row;
using Altamir::Corvane::UsageReporting::SQLiteDatabase::Value;

namespace {

std::string text_of(const Value& value) {
  const std::string text = value;
  return text;
}

int int_of(const Value& value) { return static_cast<int>(value); }
double double_of(const Value& value) { return static_cast<double>(value); }

TEST(ValueTest, WithoutArgumentIsTheEmptyText) { EXPECT_EQ(text_of(Value()), ""); }

TEST(ValueTest, SubscriptOfARowMakesAnEmptyValue) {
  Row row;
  EXPECT_EQ(text_of(row["MISSING"]), "");
  EXPECT_EQ(row.size(), 1u);
}

TEST(ValueTest, TextIsKeptByteForByte) {
  const std::string text("  Mixed\n\t\xC3\xA4 end \0x", 18);
  EXPECT_EQ(text_of(Value(text)), text);
}

TEST(ValueTest, IntIsWrittenAsPlainDecimal) {
  EXPECT_EQ(text_of(Value(0)), "0");
  EXPECT_EQ(text_of(Value(-42)), "-42");
  EXPECT_EQ(text_of(Value(std::numeric_limits<int>::max())), "2147483647");
  EXPECT_EQ(text_of(Value(std::numeric_limits<int>::min())), "-2147483648");
}

TEST(ValueTest, DoubleIsWrittenWithSixSignificantDigits) {
  EXPECT_EQ(text_of(Value(1234567.0)), "1.23457e+06");
  EXPECT_EQ(text_of(Value(0.1)), "0.1");
  EXPECT_EQ(text_of(Value(1024.0)), "1024");
  EXPECT_EQ(text_of(Value(2.5)), "2.5");
  EXPECT_EQ(text_of(Value(1.0 / 3.0)), "0.333333");
  EXPECT_EQ(text_of(Value(-0.00001)), "-1e-05");
}

TEST(ValueTest, IntOfTextReadsTheLeadingNumber) {
  EXPECT_EQ(int_of(Value("12abc")), 12);
  EXPECT_EQ(int_of(Value("  -7 rest")), -7);
  EXPECT_EQ(int_of(Value("1024.9")), 1024);
  EXPECT_EQ(int_of(Value("0x10")), 0);
  EXPECT_EQ(int_of(Value("010")), 10) << "base 10, not octal";
}

TEST(ValueTest, IntOfTextThatIsNoNumberIsZero) {
  EXPECT_EQ(int_of(Value("")), 0);
  EXPECT_EQ(int_of(Value("abc")), 0);
}

TEST(ValueTest, IntKeepsTheLow32BitsOfAWiderNumber) {
  EXPECT_EQ(int_of(Value("4294967296")), 0);
  EXPECT_EQ(int_of(Value("4294967301")), 5);
  EXPECT_EQ(int_of(Value("99999999999999999999")), -1) << "clamped to 63 bits first";
}

TEST(ValueTest, DoubleOfTextReadsTheLeadingNumber) {
  EXPECT_EQ(double_of(Value("1.5e3xyz")), 1500.0);
  EXPECT_EQ(double_of(Value(" 2.25")), 2.25);
  EXPECT_EQ(double_of(Value("none")), 0.0);
  EXPECT_EQ(double_of(Value("")), 0.0);
}

TEST(ValueTest, ADoubleOfFewDigitsEqualsItselfAgain) { EXPECT_TRUE(Value(0.1) == 0.1); }

TEST(ValueTest, ADoubleOfMoreThanSixDigitsDoesNotEqualItself) {
  EXPECT_FALSE(Value(1234567.0) == 1234567.0);
  EXPECT_TRUE(Value(1234567.0) == 1234570.0);
}

TEST(ValueTest, EqualityWithADoubleHasNoTolerance) {
  EXPECT_TRUE(Value("0.30000000000000004") == 0.1 + 0.2);
  EXPECT_FALSE(Value("0.3") == 0.1 + 0.2);
}

TEST(ValueTest, NotANumberOnEitherSideIsUnequal) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(Value("nan") == nan);
  EXPECT_FALSE(Value("nan") == 0.0);
  EXPECT_FALSE(Value("0") == nan);
}

TEST(ValueTest, TextFiveWithOrWithoutALeadingBlankEqualsTheInt) {
  EXPECT_TRUE(Value("5") == 5);
  EXPECT_TRUE(Value(" 5") == 5);
  EXPECT_FALSE(Value("6") == 5);
}

TEST(ValueTest, TextFiveIsUnequalToTheCString5Point0) {
  EXPECT_FALSE(Value("5") == "5.0");
  EXPECT_TRUE(Value("5") == "5");
}

TEST(ValueTest, TextsAreComparedByteByByte) {
  EXPECT_TRUE(Value("FULL") == "FULL");
  EXPECT_FALSE(Value("FULL") == "full");
  EXPECT_FALSE(Value("FULL") == "FULL ");
  EXPECT_TRUE(Value("a") == Value(std::string("a")));
  EXPECT_FALSE(Value("a") == Value("A"));
  EXPECT_FALSE(Value(std::string("a\0b", 3)) == Value("a"));
}

TEST(ValueTest, Text1Point0IsUnequalToText1ThoughItEqualsTheDouble) {
  EXPECT_FALSE(Value("1.0") == Value("1"));
  EXPECT_TRUE(Value("1.0") == 1.0);
}

}  // namespace
