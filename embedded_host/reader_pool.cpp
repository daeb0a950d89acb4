#include "embedded_host/reader_pool.h"

namespace corvane::host {

ReaderPool::Loan ReaderPool::borrow() {
  {
    const std::lock_guard lock(mutex_);
    if (!idle_.empty()) {
      Loan loan(idle_.back().release(), GiveBack{this});
      idle_.pop_back();
      return loan;
    }
  }
  return Loan(new CatalogReader(path_, stopping_), GiveBack{this});
}

void ReaderPool::GiveBack::operator()(CatalogReader* reader) const noexcept {
  std::unique_ptr<CatalogReader> owned(reader);
  try {
    const std::lock_guard lock(pool->mutex_);
    pool->idle_.push_back(std::move(owned));
  } catch (...) {
    // Without memory to keep it, the connection is closed.
  }
}

}  // namespace corvane::host
