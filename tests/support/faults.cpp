#include "tests/support/faults.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string_view>
#include <type_traits>
#include <utility>

namespace corvane::test {

namespace {

// A forked child goes on with a copy.
bool armed = false;
FaultPoint armed_point{};
int calls = 0;
int failed_calls = 0;

LogHook& log_hook() {
  static LogHook hook;
  return hook;
}

}  // namespace

void arm(const FaultPoint& point) {
  armed_point = point;
  calls = 0;
  failed_calls = 0;
  armed = true;
}

int disarm() {
  armed = false;
  return failed_calls;
}

bool fails(Fault kind) {
  if (!armed || armed_point.kind != kind || armed_point.nth == 0) return false;
  ++calls;
  const bool hit =
      armed_point.duration == Duration::kOnce ? calls == armed_point.nth : calls >= armed_point.nth;
  if (hit) ++failed_calls;
  return hit;
}

FaultsSuspended::FaultsSuspended() : was_armed_(std::exchange(armed, false)) {}
FaultsSuspended::~FaultsSuspended() { armed = was_armed_; }

void on_log(LogHook hook) { log_hook() = std::move(hook); }

}  // namespace corvane::test

using corvane::test::fails;
using corvane::test::Fault;

namespace {

int error_of(Fault kind) {
  switch (kind) {
    case Fault::kOpen:
      return EMFILE;
    case Fault::kWrite:
      return ENOSPC;
    case Fault::kFork:
      return EAGAIN;
    default:
      return EIO;
  }
}

// Fails, or calls the function that this executable's own of that name hides.
template <typename Result, typename... Arguments>
Result fail_or_call(Fault kind, const char* name, Arguments... arguments) {
  if (fails(kind)) {
    errno = error_of(kind);
    if constexpr (std::is_pointer_v<Result>) return nullptr;
    if constexpr (!std::is_pointer_v<Result>) return -1;
  }
  return reinterpret_cast<Result (*)(Arguments...)>(dlsym(RTLD_NEXT, name))(arguments...);
}

// The mode is there only for a file that may be made.
int fail_or_open(const char* name, const char* path, int flags, std::va_list arguments) {
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  return fail_or_call<int>(Fault::kOpen, name, path, flags, mode);
}

void* allocate(std::size_t size) noexcept {
  return fails(Fault::kAllocation) ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* allocate_or_throw(std::size_t size) {
  void* const memory = allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(std::size_t size) { return allocate_or_throw(size); }
void* operator new[](std::size_t size) { return allocate_or_throw(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

extern "C" {

int open(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const int file = fail_or_open("open", path, flags, arguments);
  va_end(arguments);
  return file;
}

int open64(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const int file = fail_or_open("open64", path, flags, arguments);
  va_end(arguments);
  return file;
}

std::FILE* fopen(const char* path, const char* mode) {
  return fail_or_call<std::FILE*>(Fault::kOpen, "fopen", path, mode);
}

std::FILE* fopen64(const char* path, const char* mode) {
  return fail_or_call<std::FILE*>(Fault::kOpen, "fopen64", path, mode);
}

DIR* opendir(const char* path) { return fail_or_call<DIR*>(Fault::kOpen, "opendir", path); }

ssize_t read(int file, void* data, std::size_t size) {
  return fail_or_call<ssize_t>(Fault::kRead, "read", file, data, size);
}

ssize_t pread64(int file, void* data, std::size_t size, off64_t offset) {
  return fail_or_call<ssize_t>(Fault::kRead, "pread64", file, data, size, offset);
}

ssize_t write(int file, const void* data, std::size_t size) {
  return fail_or_call<ssize_t>(Fault::kWrite, "write", file, data, size);
}

ssize_t writev(int file, const iovec* pieces, int count) {
  return fail_or_call<ssize_t>(Fault::kWrite, "writev", file, pieces, count);
}

ssize_t pwrite64(int file, const void* data, std::size_t size, off64_t offset) {
  return fail_or_call<ssize_t>(Fault::kWrite, "pwrite64", file, data, size, offset);
}

int fsync(int) {
  errno = EIO;
  return fails(Fault::kSync) ? -1 : 0;
}

int fdatasync(int file) { return fsync(file); }

pid_t fork() noexcept { return fail_or_call<pid_t>(Fault::kFork, "fork"); }

// Wrapped by the linker, so that SQLite's own use of them goes on.

int __real_sqlite3_step(sqlite3_stmt* statement);
int __wrap_sqlite3_step(sqlite3_stmt* statement) {
  return fails(Fault::kStatement) ? SQLITE_IOERR : __real_sqlite3_step(statement);
}

int __real_sqlite3_exec(sqlite3* db, const char* sql, int (*callback)(void*, int, char**, char**),
                        void* context, char** error);
int __wrap_sqlite3_exec(sqlite3* db, const char* sql, int (*callback)(void*, int, char**, char**),
                        void* context, char** error) {
  // A rollback needs neither disk nor memory: it does not fail while there is one to make.
  const bool certain = std::string_view(sql).starts_with("ROLLBACK");
  if (certain || !fails(Fault::kStatement)) {
    return __real_sqlite3_exec(db, sql, callback, context, error);
  }
  if (error != nullptr) *error = nullptr;
  return SQLITE_IOERR;
}

// logmsg(int, const char*, const char*) and logmsgf(int, const char*, const char*, ...).
void __real__Z6logmsgiPKcS0_(int level, const char* tag, const char* text);
void __wrap__Z6logmsgiPKcS0_(int level, const char* tag, const char* text) {
  {
    const corvane::test::FaultsSuspended suspended;
    __real__Z6logmsgiPKcS0_(level, tag, text);
  }
  if (corvane::test::log_hook()) corvane::test::log_hook()(tag, text);
}

void __wrap__Z7logmsgfiPKcS0_z(int level, const char* tag, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  char* text = nullptr;
  if (vasprintf(&text, format, arguments) < 0) std::abort();
  va_end(arguments);
  __wrap__Z6logmsgiPKcS0_(level, tag, text);
  std::free(text);
}

}  // extern "C"
