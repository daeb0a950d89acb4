// File access without root's rights, whoever runs the tests.
#pragma once

#include <sys/fsuid.h>
#include <unistd.h>

namespace corvane::test {

// For as long as it lives, this thread's file accesses are checked as an ordinary user's who owns
// no file of the test. Without root's rights nothing changes: then the tests' own user is bound by
// a file's mode anyway, so take away all of the mode's bits.
class OrdinaryUserFiles {
 public:
  OrdinaryUserFiles() { setfsuid(geteuid() == 0 ? kNobody : geteuid()); }
  ~OrdinaryUserFiles() { setfsuid(geteuid()); }
  OrdinaryUserFiles(const OrdinaryUserFiles&) = delete;
  OrdinaryUserFiles& operator=(const OrdinaryUserFiles&) = delete;

  // False where the machine does not let root step down; such a test cannot be made there.
  static bool possible() {
    const OrdinaryUserFiles here;
    return static_cast<uid_t>(setfsuid(static_cast<uid_t>(-1))) != 0;
  }

 private:
  static constexpr uid_t kNobody = 65534;
};

}  // namespace corvane::test
