// The threads that serve connections, one per connection.
#pragma once

#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

namespace corvane::host {

// A fixed number of threads and a bounded queue: when it is full, no more connections are accepted
// until there is room again, so that descriptors do not run out.
class WorkerPool {
 public:
  WorkerPool(std::size_t threads, std::size_t queue);
  ~WorkerPool();  // finishes the queue and joins the threads

  void enqueue(std::function<void()> task);

  bool has_waiting() const;
  // From now on enqueue does not wait.
  void release();

 private:
  void work();

  const std::size_t capacity_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::list<std::function<void()>> tasks_;
  bool released_ = false;
  bool ended_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace corvane::host
