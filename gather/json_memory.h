// Memory for JSON documents that live shortly.
#pragma once

#include <cstddef>

namespace corvane {

// Jansson allocates every key and value by itself, which takes up to a quarter of the time of
// reading a document. While one of these lives, what Jansson allocates on this thread is cut from
// one block that is reused afterwards as a whole; what no longer fits comes from the heap as
// always. They may be nested. What was parsed during the life of one must be gone before it, on
// this thread.
class JsonMemory {
 public:
  JsonMemory();
  ~JsonMemory();
  JsonMemory(const JsonMemory&) = delete;
  JsonMemory& operator=(const JsonMemory&) = delete;

 private:
  std::size_t used_before_;
};

}  // namespace corvane
