// Thrown by an operation that was interrupted by a request to stop.
#pragma once

#include <exception>
#include <string>
#include <utility>

class ServiceStopException : public std::exception {
 public:
  explicit ServiceStopException(std::string operation) : operation_(std::move(operation)) {}

  // The name of the interrupted operation.
  const char* what() const noexcept override { return operation_.c_str(); }

 private:
  std::string operation_;
};
