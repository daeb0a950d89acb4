#include "embedded_host/worker_pool.h"

namespace corvane::host {

WorkerPool::WorkerPool(std::size_t threads, std::size_t queue) : capacity_(queue) {
  for (std::size_t i = 0; i < threads; ++i) threads_.emplace_back([this] { work(); });
}

void WorkerPool::enqueue(std::function<void()> task) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return released_ || tasks_.size() < capacity_; });
  tasks_.push_back(std::move(task));
  changed_.notify_all();
}

WorkerPool::~WorkerPool() {
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    changed_.notify_all();
  }
  for (std::thread& thread : threads_) thread.join();
}

bool WorkerPool::has_waiting() const {
  const std::lock_guard lock(mutex_);
  return !tasks_.empty();
}

void WorkerPool::release() {
  const std::lock_guard lock(mutex_);
  released_ = true;
  changed_.notify_all();
}

void WorkerPool::work() {
  for (;;) {
    std::function<void()> task;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return ended_ || !tasks_.empty(); });
      if (tasks_.empty()) return;
      task = std::move(tasks_.front());
      tasks_.pop_front();
      changed_.notify_all();
    }
    task();
  }
}

}  // namespace corvane::host
