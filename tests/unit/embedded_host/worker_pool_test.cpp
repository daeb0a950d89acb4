#include "embedded_host/worker_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>

namespace corvane::host {
namespace {

TEST(WorkerPool, DoesEveryTaskBeforeItEnds) {
  std::atomic<int> done = 0;
  {
    WorkerPool pool(4, 1000);
    for (int i = 0; i < 500; ++i) pool.enqueue([&] { ++done; });
  }
  EXPECT_EQ(done, 500);
}

TEST(WorkerPool, AFullQueueHoldsUpWhoAdds) {
  std::promise<void> open;
  const std::shared_future<void> gate = open.get_future().share();
  WorkerPool pool(1, 2);
  std::atomic<int> added = 0;
  std::promise<void> busy;
  pool.enqueue([&] {
    busy.set_value();
    gate.wait();
  });
  busy.get_future().wait();
  EXPECT_FALSE(pool.has_waiting());
  std::thread adder([&] {
    for (int i = 0; i < 5; ++i) {
      pool.enqueue([gate] { gate.wait(); });
      ++added;
    }
  });
  while (added < 2) std::this_thread::yield();
  // A third would come within this time, were the queue without an end.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(added, 2);
  EXPECT_TRUE(pool.has_waiting());
  open.set_value();
  adder.join();
  EXPECT_EQ(added, 5);
}

TEST(WorkerPool, ReleaseLetsWhoAddsGoOn) {
  std::promise<void> open;
  const std::shared_future<void> gate = open.get_future().share();
  WorkerPool pool(1, 1);
  const auto adder = std::async(std::launch::async, [&] {
    for (int i = 0; i < 10; ++i) pool.enqueue([gate] { gate.wait(); });
  });
  pool.release();
  EXPECT_EQ(adder.wait_for(std::chrono::minutes(1)), std::future_status::ready);
  open.set_value();  // also lets an adder end that is still held up
}

}  // namespace
}  // namespace corvane::host
