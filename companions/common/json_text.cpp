#include "companions/common/json_text.h"

#include <cstdlib>
#include <memory>
#include <new>

namespace corvane {

std::string json_text(const json_t* value, std::size_t flags) {
  const std::unique_ptr<char, decltype(&std::free)> text(
      json_dumps(value, flags | JSON_REAL_PRECISION(15)), &std::free);
  if (text == nullptr) throw std::bad_alloc();
  return text.get();
}

}  // namespace corvane
