// The catalog connections that the web service's threads share.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "embedded_host/catalog_reader.h"

namespace corvane::host {

// Opens connections when they are needed and keeps them, with their compiled queries, for the next
// request. Thread-safe.
class ReaderPool {
 public:
  ReaderPool(std::string path, const std::atomic<bool>& stopping)
      : path_(std::move(path)), stopping_(stopping) {}

  // A reader for one request; the pointer returns it on destruction and must not outlive the pool.
  struct GiveBack {
    ReaderPool* pool;
    void operator()(CatalogReader* reader) const noexcept;
  };
  using Loan = std::unique_ptr<CatalogReader, GiveBack>;
  Loan borrow();  // throws CatalogError

 private:
  std::string path_;
  const std::atomic<bool>& stopping_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<CatalogReader>> idle_;
};

}  // namespace corvane::host
