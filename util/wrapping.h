// 32-bit signed arithmetic that wraps around instead of being undefined.
#pragma once

namespace corvane {

constexpr int wrapping_add(int a, int b) {
  return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

constexpr int wrapping_subtract(int a, int b) {
  return static_cast<int>(static_cast<unsigned>(a) - static_cast<unsigned>(b));
}

constexpr int wrapping_multiply(int a, int b) {
  return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

}  // namespace corvane
