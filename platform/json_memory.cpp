#include "platform/json_memory.h"

#include <jansson.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>

namespace corvane {

namespace {

constexpr std::size_t kBlockBytes = 1 << 20;

struct Block {
  std::unique_ptr<std::byte[]> bytes;
  std::size_t used = 0;
  int users = 0;
  bool is_reading = false;
};

thread_local Block block;

std::byte* allocate_from_block(std::size_t size) {
  if (!block.is_reading || size > kBlockBytes - block.used) return nullptr;
  std::byte* const place = block.bytes.get() + block.used;
  constexpr std::size_t kAlignment = alignof(std::max_align_t);
  block.used =
      std::min(kBlockBytes, (block.used + size + kAlignment - 1) / kAlignment * kAlignment);
  return place;
}

void* allocate(std::size_t size) {
  void* const place = allocate_from_block(size);
  return place != nullptr ? place : std::malloc(size);
}

void release(void* place) {
  const std::less<> before;
  const auto* const byte = static_cast<const std::byte*>(place);
  const std::byte* const begin = block.bytes.get();
  const bool in_block =
      begin != nullptr && !before(byte, begin) && before(byte, begin + kBlockBytes);
  if (!in_block) std::free(place);
}

}  // namespace

JsonMemory::JsonMemory() {
  static std::once_flag installed;
  std::call_once(installed, [] { json_set_alloc_funcs(allocate, release); });
  if (!block.bytes) block.bytes = std::make_unique_for_overwrite<std::byte[]>(kBlockBytes);
  used_before_ = block.used;
  ++block.users;
}

JsonMemory::~JsonMemory() {
  --block.users;
  block.used = used_before_;
}

JsonPtr load_json(const std::string& text) {
  block.is_reading = block.users > 0;
  JsonPtr root(json_loads(text.c_str(), 0, nullptr));
  block.is_reading = false;
  return root;
}

}  // namespace corvane
