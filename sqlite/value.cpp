#include "sqlite/value.h"

#include <cstdlib>
#include <sstream>

namespace Altamir::Corvane::UsageReporting::SQLiteDatabase {

namespace {

std::string stream_text(auto number) {
  std::ostringstream stream;
  stream << number;
  return stream.str();
}

}  // namespace

Value::Value(const std::string& text) : text_(text) {}
Value::Value(int number) : text_(stream_text(number)) {}
Value::Value(double number) : text_(stream_text(number)) {}

Value::operator std::string() const { return text_; }
Value::operator int() const { return static_cast<int>(std::strtol(text_.c_str(), nullptr, 10)); }
Value::operator double() const { return std::strtod(text_.c_str(), nullptr); }

bool Value::operator==(int number) const { return static_cast<int>(*this) == number; }
bool Value::operator==(double number) const { return static_cast<double>(*this) == number; }
bool Value::operator==(const char* text) const { return text_ == text; }
bool Value::operator==(const Value& other) const { return text_ == other.text_; }

}  // namespace Altamir::Corvane::UsageReporting::SQLiteDatabase
