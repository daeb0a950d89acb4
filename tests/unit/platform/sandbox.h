// A /usr/tessel of a test's own.
#pragma once

namespace corvane::test {

// Gives the calling process, which must have no second thread, a file system view of its own in
// which /usr holds nothing but an empty, writable /usr/tessel. False when the system does not allow
// that. For a child: the change lasts until the process ends.
bool enter_sandbox();

// Whether enter_sandbox works here, tried in a child; says why not on standard output.
bool sandbox_is_possible();

}  // namespace corvane::test
