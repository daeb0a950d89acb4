// What code says when it fails.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace corvane::test {

// The text of the exception that `action` throws; empty if it throws none. An exception of another
// type than `Error` is let through.
template <typename Error = std::runtime_error, typename Action>
std::string error_of(Action action) {
  try {
    action();
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}

}  // namespace corvane::test
