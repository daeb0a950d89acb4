// Memory for JSON documents that live shortly.
#pragma once

#include <cstddef>
#include <string>

#include "platform/c_handles.h"

namespace corvane {

// Jansson allocates every key and value by itself, which takes up to a quarter of the time of
// reading a document. While one of these lives, what load_json() reads on this thread is cut from
// one block that is reused afterwards as a whole; what no longer fits, and all else that Jansson
// allocates, comes from the heap as always. They may be nested. What load_json() read during the
// life of one must be gone before it, on this thread.
class JsonMemory {
 public:
  JsonMemory();
  ~JsonMemory();
  JsonMemory(const JsonMemory&) = delete;
  JsonMemory& operator=(const JsonMemory&) = delete;

 private:
  std::size_t used_before_;
};

// The document, or null when `text` is none.
JsonPtr load_json(const std::string& text);

}  // namespace corvane
