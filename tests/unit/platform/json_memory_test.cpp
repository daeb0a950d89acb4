#include "platform/json_memory.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "platform/c_handles.h"

namespace corvane {
namespace {

std::string text_of(const JsonPtr& root) {
  char* const text = json_dumps(root.get(), JSON_COMPACT);
  std::string copy(text);
  json_free_t release = nullptr;
  json_get_alloc_funcs(nullptr, &release);
  release(text);
  return copy;
}

std::string array_of(std::size_t elements) {
  std::string text = "[0";
  for (std::size_t i = 1; i < elements; ++i) text += "," + std::to_string(i);
  return text + "]";
}

TEST(JsonMemoryTest, TheNextDocumentUsesTheSameMemory) {
  const void* first = nullptr;
  {
    const JsonMemory memory;
    first = load_json(R"({"a":1})").get();
  }
  const JsonMemory memory;
  const JsonPtr second = load_json(R"({"b":2})");
  EXPECT_EQ(second.get(), first);
  EXPECT_EQ(text_of(second), R"({"b":2})");
}

TEST(JsonMemoryTest, DocumentsOfOneLifeStandSideBySide) {
  const JsonMemory memory;
  const JsonPtr first = load_json(R"({"a":[1,2.5,"x"]})");
  const JsonPtr second = load_json(R"({"b":[true,null]})");
  EXPECT_EQ(text_of(first), R"({"a":[1,2.5,"x"]})");
  EXPECT_EQ(text_of(second), R"({"b":[true,null]})");
}

TEST(JsonMemoryTest, AnInnerLifeLeavesTheOuterDocumentAlone) {
  const JsonMemory outer;
  const JsonPtr document = load_json(R"({"a":1})");
  for (int i = 0; i < 3; ++i) {
    const JsonMemory inner;
    EXPECT_EQ(text_of(load_json(R"({"b":"inner"})")), R"({"b":"inner"})");
  }
  EXPECT_EQ(text_of(document), R"({"a":1})");
  EXPECT_EQ(text_of(load_json(R"({"c":3})")), R"({"c":3})");
  EXPECT_EQ(text_of(document), R"({"a":1})");
}

TEST(JsonMemoryTest, WhatDoesNotFitComesFromTheHeap) {
  const std::string large = array_of(300'000);
  const JsonMemory memory;
  for (int i = 0; i < 2; ++i) {
    const JsonPtr root = load_json(large);
    EXPECT_EQ(text_of(root), large);
  }
  EXPECT_EQ(text_of(load_json(R"({"a":1})")), R"({"a":1})");
}

TEST(JsonMemoryTest, WhatCameFromTheHeapGoesBack) {
  const std::string large = array_of(300'000);
  const JsonMemory memory;
  const auto in_use = [&] {
    load_json(large);
    return mallinfo2().uordblks;
  };
  in_use();  // Jansson and the library keep something of their first use
  const std::size_t before = in_use();
  EXPECT_EQ(in_use(), before);
}

TEST(JsonMemoryTest, DocumentsOfTheHeapMayEndDuringALife) {
  JsonPtr before = load_json(R"({"a":1})");
  const JsonMemory memory;
  const JsonPtr during = load_json(R"({"b":2})");
  before.reset();
  EXPECT_EQ(text_of(during), R"({"b":2})");
}

TEST(JsonMemoryTest, OnlyWhatIsReadIsInTheBlock) {
  JsonPtr lasting;
  {
    const JsonMemory memory;
    const JsonPtr read = load_json(R"({"a":1})");
    char* const text = json_dumps(read.get(), JSON_COMPACT);
    EXPECT_STREQ(text, R"({"a":1})");
    std::free(text);  // as anybody may who knows nothing of the block
    lasting.reset(json_pack("{s:s}", "b", "lasting"));
  }
  const JsonMemory memory;
  const JsonPtr next = load_json(R"({"c":"overwrites"})");
  EXPECT_EQ(text_of(lasting), R"({"b":"lasting"})");
}

TEST(JsonMemoryTest, IsTheThreadsOwn) {
  const JsonMemory memory;
  const JsonPtr here = load_json(R"({"a":1})");
  std::thread([] {
    const JsonPtr on_the_heap = load_json(R"({"b":2})");
    const JsonMemory memory_of_its_own;
    EXPECT_EQ(text_of(load_json(R"({"c":3})")), R"({"c":3})");
    EXPECT_EQ(text_of(on_the_heap), R"({"b":2})");
  }).join();
  EXPECT_EQ(text_of(here), R"({"a":1})");
}

}  // namespace
}  // namespace corvane
