#include "platform/daemon_mark.h"

#include <atomic>

namespace corvane {

namespace {

std::atomic<bool> daemon_mark = false;
static_assert(std::atomic<bool>::is_always_lock_free);

}  // namespace

void mark_daemon(bool is_daemon) { daemon_mark = is_daemon; }

bool is_marked_daemon() { return daemon_mark; }

}  // namespace corvane
