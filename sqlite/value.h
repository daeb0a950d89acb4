// One column value of a result row.
#pragma once

#include <map>
#include <string>

namespace Altamir::Corvane::UsageReporting::SQLiteDatabase {

// Holds the value as text and converts on demand. Numbers are read as by strtol (base 10) and
// strtod: leading spaces and trailing text are allowed, and a text without a number is 0.
class Value {
 public:
  Value() = default;  // the empty text
  Value(const std::string& text);
  Value(int number);
  Value(double number);  // six significant digits, as an output stream writes it

  operator std::string() const;
  operator int() const;  // the low 32 bits
  operator double() const;

  bool operator==(int number) const;
  bool operator==(double number) const;  // exact; false if either is NaN
  bool operator==(const char* text) const;
  bool operator==(const Value& other) const;  // byte by byte: "1.0" is not "1"

 private:
  std::string text_;
};

// Column name to value.
using Row = std::map<std::string, Value>;

}  // namespace Altamir::Corvane::UsageReporting::SQLiteDatabase
