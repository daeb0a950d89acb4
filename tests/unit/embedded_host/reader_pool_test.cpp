#include "embedded_host/reader_pool.h"

#include <gtest/gtest.h>

#include "tests/unit/embedded_host/catalog_world.h"

namespace corvane::host {
namespace {

TEST(ReaderPool, KeepsWhatCameBack) {
  test::CatalogWorld world;
  world.load({});
  const std::atomic<bool> stopping = false;
  ReaderPool pool(world.path, stopping);
  const CatalogReader* first = nullptr;
  {
    const ReaderPool::Loan loan = pool.borrow();
    first = loan.get();
  }
  const ReaderPool::Loan again = pool.borrow();
  const ReaderPool::Loan other = pool.borrow();
  EXPECT_EQ(again.get(), first);
  EXPECT_NE(other.get(), first);
  EXPECT_NE(other.get(), nullptr);
}

TEST(ReaderPool, AMissingCatalogIsAnError) {
  const corvane::test::ScratchDir dir;
  const std::atomic<bool> stopping = false;
  ReaderPool pool(dir("none.db"), stopping);
  EXPECT_THROW(pool.borrow(), CatalogError);
}

}  // namespace
}  // namespace corvane::host
