#include "companions/alert/delivery/senders.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

namespace corvane::alert {

namespace {

constexpr std::chrono::milliseconds kLookEvery(5);

}  // namespace

Senders::Senders(SenderFiles files, std::string master)
    : files_(std::move(files)), master_(std::move(master)) {}

void Senders::start(const Settings& settings, const std::vector<std::string>& others) {
  std::vector<std::string> names = settings.people();
  names.emplace_back(kWeb);
  names.insert(names.end(), others.begin(), others.end());
  for (const std::string& name : names) {
    const bool is_there = std::any_of(threads_.begin(), threads_.end(),
                                      [&](const auto& thread) { return thread->name() == name; });
    if (is_there) continue;
    threads_.push_back(std::make_unique<SenderThread>(name, files_, settings, master_));
  }
}

void Senders::wake() {
  for (const auto& thread : threads_) thread->wake();
}

bool Senders::end(int milliseconds, bool with_web) {
  const auto is_meant = [&](const auto& thread) { return with_web || thread->name() != kWeb; };
  for (const auto& thread : threads_) {
    if (is_meant(thread)) thread->finish();
  }
  const auto begin = std::chrono::steady_clock::now();
  for (;;) {
    std::erase_if(threads_,
                  [&](const auto& thread) { return is_meant(thread) && thread->has_ended(); });
    if (std::none_of(threads_.begin(), threads_.end(), is_meant)) return true;
    const auto passed = std::chrono::steady_clock::now() - begin;
    if (passed >= std::chrono::milliseconds(milliseconds)) return false;
    if (passed >= std::chrono::milliseconds(milliseconds / 2)) {
      for (const auto& thread : threads_) {
        if (is_meant(thread)) thread->break_off();
      }
    }
    std::this_thread::sleep_for(kLookEvery);
  }
}

}  // namespace corvane::alert
