#include "platform/debug_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "platform/daemon_mark.h"

namespace {

constexpr int kFirstDescriptor = 3;
constexpr std::size_t kMaxText = std::size_t{1} << 20;
constexpr std::size_t kMaxTag = 256;
constexpr std::size_t kPrefixRoom = 80;   // time, process id and level with spaces
constexpr std::size_t kUsualText = 4096;  // a longer one is formatted on the heap
constexpr std::size_t kUsualRecord = 8192;
constexpr std::string_view kCutMark = " [cut]";

std::atomic<int> log_descriptor = -1;
static_assert(std::atomic<int>::is_always_lock_free);

// The last write was cut off by a full disk in the middle of its record: the next one must not
// continue the same line.
std::atomic<bool> line_is_open = false;

// Restores errno.
class ErrnoKept {
 public:
  ErrnoKept() = default;
  ~ErrnoKept() { errno = saved_; }
  ErrnoKept(const ErrnoKept&) = delete;
  ErrnoKept& operator=(const ErrnoKept&) = delete;

 private:
  int saved_ = errno;
};

// Moves a descriptor above the standard three, which the daemon closes. Returns -1 on failure.
int moved_up(int descriptor) {
  if (descriptor < 0 || descriptor >= kFirstDescriptor) return descriptor;
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, kFirstDescriptor);
  close(descriptor);
  return moved;
}

// Makes `descriptor` the log's. The number of the first log never changes, so a signal handler or
// another thread that is writing a record never finds a closed descriptor.
int install(int descriptor) {
  int first = -1;
  if (log_descriptor.compare_exchange_strong(first, descriptor)) return descriptor;
  const int replaced = dup3(descriptor, first, O_CLOEXEC);
  close(descriptor);
  return replaced;
}

// Some readers, and terminals, treat a carriage return as a line end.
bool begins_continuation(std::string_view text, std::size_t i) {
  return text[i] == '\n' || (text[i] == '\r' && (i + 1 == text.size() || text[i + 1] != '\n'));
}

std::size_t continuations(std::string_view text) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < text.size(); ++i) count += begins_continuation(text, i) ? 1 : 0;
  return count;
}

// A record under construction in a buffer that is large enough for it.
class Record {
 public:
  explicit Record(char* buffer) : begin_(buffer), end_(buffer) {}

  void put(std::string_view text) { end_ = std::copy(text.begin(), text.end(), end_); }

  void put_indented(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      *end_++ = text[i];
      if (begins_continuation(text, i)) *end_++ = '\t';
    }
  }

  // Time, process id and level. The date is computed here because gmtime_r takes the lock of the
  // time zone, which the code that the signal interrupted may hold.
  void put_prefix(int level) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::chrono::sys_seconds second{std::chrono::seconds{now.tv_sec}};
    const auto day = std::chrono::floor<std::chrono::days>(second);
    const std::chrono::year_month_day date{day};
    const std::chrono::hh_mm_ss time{second - day};
    const int length = std::snprintf(
        end_, kPrefixRoom, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ %d%s %d ", int{date.year()},
        unsigned{date.month()}, unsigned{date.day()}, static_cast<int>(time.hours().count()),
        static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
        static_cast<int>(now.tv_nsec / 1'000'000), static_cast<int>(getpid()),
        corvane::is_marked_daemon() ? "d" : "", level);
    if (length > 0) end_ += std::min(static_cast<std::size_t>(length), kPrefixRoom - 1);
  }

  std::string_view written() const { return {begin_, static_cast<std::size_t>(end_ - begin_)}; }

 private:
  char* begin_;
  char* end_;
};

void write_record(int descriptor, std::string_view record) {
  const ssize_t written = write(descriptor, record.data(), record.size());
  if (written > 0) line_is_open = static_cast<std::size_t>(written) < record.size();
}

void log_text(int level, std::string_view tag, std::string_view text) {
  const int descriptor = log_descriptor;
  if (descriptor < 0) return;
  tag = tag.substr(0, kMaxTag);
  bool cut = text.size() > kMaxText;
  text = text.substr(0, kMaxText);

  // Besides the text there are a line end for an open line, the prefix, tag, ": ", the mark and a
  // line end.
  const std::size_t around = kPrefixRoom + 2 * tag.size() + kCutMark.size() + 4;
  const std::size_t needed = around + text.size() + continuations(text);
  char usual[kUsualRecord];
  std::unique_ptr<char[]> large;
  if (needed > sizeof usual) {
    large.reset(new (std::nothrow) char[needed]);
    if (!large) {
      text = text.substr(0, (sizeof usual - around) / 2);
      cut = true;
    }
  }

  Record record(large ? large.get() : usual);
  if (line_is_open) record.put("\n");
  record.put_prefix(level);
  record.put_indented(tag);
  record.put(": ");
  record.put_indented(text);
  if (cut) record.put(kCutMark);
  record.put("\n");
  write_record(descriptor, record.written());
}

}  // namespace

int open_debug_log(const char* directory, const char* /*program*/, const char* name, int mode,
                   int* status) {
  const std::string path = std::string(directory) + "/" + name;
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY;
  int descriptor = moved_up(open(path.c_str(), kFlags, static_cast<mode_t>(mode)));
  if (descriptor >= 0) descriptor = install(descriptor);
  if (descriptor < 0) *status = -1;
  return descriptor;
}

void logmsg(int level, const char* tag, const char* text) {
  const ErrnoKept errno_kept;
  log_text(level, tag, text);
}

// NOLINTNEXTLINE(cert-dcl50-cpp): the product's callers pass their arguments as to printf
void logmsgf(int level, const char* tag, const char* format, ...) {
  const ErrnoKept errno_kept;
  char usual[kUsualText];
  std::va_list arguments;
  va_start(arguments, format);
  const int wanted = std::vsnprintf(usual, sizeof usual, format, arguments);
  va_end(arguments);
  if (wanted < 0) {  // the text cannot be formatted; its pattern tells where it came from
    log_text(level, tag, format);
    return;
  }
  const auto length = static_cast<std::size_t>(wanted);
  if (length < sizeof usual) {
    log_text(level, tag, {usual, length});
    return;
  }
  const std::size_t room = std::min(length, kMaxText + 1) + 1;  // one more shows that it was cut
  const std::unique_ptr<char[]> large(new (std::nothrow) char[room]);
  if (!large) {
    log_text(level, tag, {usual, sizeof usual - 1});
    return;
  }
  va_start(arguments, format);
  std::vsnprintf(large.get(), room, format, arguments);
  va_end(arguments);
  log_text(level, tag, {large.get(), room - 1});
}
