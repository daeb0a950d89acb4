// Whether this process is a daemon; log records are marked accordingly.
#pragma once

namespace corvane {

// Both may be called from a signal handler and from any thread.
void mark_daemon(bool is_daemon);
bool is_marked_daemon();

}  // namespace corvane
