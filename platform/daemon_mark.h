// Whether this process calls itself a daemon; log records carry the mark.
#pragma once

namespace corvane {

// Both may be called from a signal handler and from any thread.
void mark_daemon(bool is_daemon);
bool is_marked_daemon();

}  // namespace corvane
