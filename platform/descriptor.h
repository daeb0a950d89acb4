// A file descriptor that is closed together with its owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace corvane {

class Descriptor {
 public:
  Descriptor() = default;
  // The result of open(), socket() and the like: -1 means that it failed.
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, kNone)) {}
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() { reset(); }

  bool is_open() const { return number_ != kNone; }
  int get() const { return number_; }

  // Closes what is open, and takes this one instead. Without one to close, errno stays as it is.
  void reset(int number = kNone) {
    if (is_open()) close(number_);
    number_ = number;
  }

 private:
  static constexpr int kNone = -1;

  int number_ = kNone;
};

}  // namespace corvane
