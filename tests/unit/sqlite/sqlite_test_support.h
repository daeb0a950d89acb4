// What the tests of the SQLite layer share.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "sqlite/db_access.h"
#include "sqlite/sqlite_exception.h"

namespace corvane::test {

namespace sqlite = Altamir::Corvane::UsageReporting::SQLiteDatabase;

// As the service opens its database: read, write, create, no mutex.
inline constexpr int kServiceFlags = 32774;

inline std::map<std::string, std::string> texts(const sqlite::Row& row) {
  std::map<std::string, std::string> result;
  for (const auto& [name, value] : row) result[name] = static_cast<std::string>(value);
  return result;
}

inline std::vector<std::map<std::string, std::string>> texts(const std::vector<sqlite::Row>& rows) {
  std::vector<std::map<std::string, std::string>> result;
  for (const sqlite::Row& row : rows) result.push_back(texts(row));
  return result;
}

using Texts = std::vector<std::map<std::string, std::string>>;

// Runs `operation` and expects an sqlite_exception with just these texts.
template <typename Operation>
void expect_sqlite_exception(Operation operation, const std::string& message,
                             const std::string& inner_message = "") {
  try {
    operation();
    ADD_FAILURE() << "no exception, expected: " << message;
  } catch (const sqlite::sqlite_exception& error) {
    EXPECT_EQ(error.what(), message);
    EXPECT_EQ(error.inner_message(), inner_message);
  }
}

}  // namespace corvane::test
