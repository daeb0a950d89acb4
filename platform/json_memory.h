// Memory for short-lived JSON documents.
#pragma once

#include <cstddef>
#include <string>

#include "platform/c_handles.h"

namespace corvane {

// Jansson allocates every key and value separately, which takes up to a quarter of the time of
// parsing a document. While an object of this class exists, load_json() on this thread allocates
// from one block, which is reused afterwards as a whole. What does not fit, and everything else
// that Jansson allocates, comes from the heap. Objects may be nested. Documents that load_json()
// returned during the life of an object must be freed before it, on this thread.
class JsonMemory {
 public:
  JsonMemory();
  ~JsonMemory();
  JsonMemory(const JsonMemory&) = delete;
  JsonMemory& operator=(const JsonMemory&) = delete;

 private:
  std::size_t used_before_;
};

// The document, or null if `text` is not valid JSON.
JsonPtr load_json(const std::string& text);

}  // namespace corvane
