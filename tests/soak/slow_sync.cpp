// A disk that is slow: preloaded, it makes every sync of a file take 100 ms longer. The system call
// is made directly, because the clock that sleep functions use may run faster.
#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>

namespace {

int slow(long call, int file) {
  const timespec pause{0, 100'000'000};
  syscall(SYS_nanosleep, &pause, nullptr);
  return static_cast<int>(syscall(call, file));
}

}  // namespace

extern "C" int fsync(int file) { return slow(SYS_fsync, file); }
extern "C" int fdatasync(int file) { return slow(SYS_fdatasync, file); }
