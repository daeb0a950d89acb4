#include "gather/json_memory.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "platform/c_handles.h"

namespace corvane {
namespace {

JsonPtr parsed(const std::string& text) { return JsonPtr(json_loads(text.c_str(), 0, nullptr)); }

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
    first = parsed(R"({"a":1})").get();
  }
  const JsonMemory memory;
  const JsonPtr second = parsed(R"({"b":2})");
  EXPECT_EQ(second.get(), first);
  EXPECT_EQ(text_of(second), R"({"b":2})");
}

TEST(JsonMemoryTest, DocumentsOfOneLifeStandSideBySide) {
  const JsonMemory memory;
  const JsonPtr first = parsed(R"({"a":[1,2.5,"x"]})");
  const JsonPtr second = parsed(R"({"b":[true,null]})");
  EXPECT_EQ(text_of(first), R"({"a":[1,2.5,"x"]})");
  EXPECT_EQ(text_of(second), R"({"b":[true,null]})");
}

TEST(JsonMemoryTest, AnInnerLifeLeavesTheOuterDocumentAlone) {
  const JsonMemory outer;
  const JsonPtr document = parsed(R"({"a":1})");
  for (int i = 0; i < 3; ++i) {
    const JsonMemory inner;
    EXPECT_EQ(text_of(parsed(R"({"b":"inner"})")), R"({"b":"inner"})");
  }
  EXPECT_EQ(text_of(document), R"({"a":1})");
  EXPECT_EQ(text_of(parsed(R"({"c":3})")), R"({"c":3})");
  EXPECT_EQ(text_of(document), R"({"a":1})");
}

TEST(JsonMemoryTest, WhatDoesNotFitComesFromTheHeap) {
  const std::string large = array_of(300'000);
  const JsonMemory memory;
  for (int i = 0; i < 2; ++i) {
    const JsonPtr root = parsed(large);
    EXPECT_EQ(text_of(root), large);
  }
  EXPECT_EQ(text_of(parsed(R"({"a":1})")), R"({"a":1})");
}

TEST(JsonMemoryTest, DocumentsOfTheHeapMayEndDuringALife) {
  JsonPtr before = parsed(R"({"a":1})");
  const JsonMemory memory;
  const JsonPtr during = parsed(R"({"b":2})");
  before.reset();
  EXPECT_EQ(text_of(during), R"({"b":2})");
}

TEST(JsonMemoryTest, IsTheThreadsOwn) {
  const JsonMemory memory;
  const JsonPtr here = parsed(R"({"a":1})");
  std::thread([] {
    const JsonPtr on_the_heap = parsed(R"({"b":2})");
    const JsonMemory memory_of_its_own;
    EXPECT_EQ(text_of(parsed(R"({"c":3})")), R"({"c":3})");
    EXPECT_EQ(text_of(on_the_heap), R"({"b":2})");
  }).join();
  EXPECT_EQ(text_of(here), R"({"a":1})");
}

}  // namespace
}  // namespace corvane
