#include "companions/alert/delivery/dead_letter.h"

#include <fcntl.h>
#include <jansson.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "companions/alert/channel/message.h"
#include "platform/c_handles.h"
#include "util/json.h"

namespace corvane::alert {

namespace {

std::string line_of(const Delivery& delivery, std::int64_t now) {
  const JsonPtr letter(json_object());
  put(letter.get(), "channel", delivery.channel);
  put(letter.get(), "reason", delivery.reason);
  put(letter.get(), "attempts", delivery.attempts);
  put(letter.get(), "given_up", now);
  put(letter.get(), "message", to_json(delivery.content));
  return without_nul(json_text(letter.get())) + "\n";
}

}  // namespace

DeadLetterFile::DeadLetterFile(const std::string& path)
    : path_(path), file_(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600)) {
  if (!file_.is_open() || flock(file_.get(), LOCK_EX) != 0) fail();
}

void DeadLetterFile::append(const std::vector<Delivery>& deliveries, std::int64_t now) const {
  std::string lines;
  for (const Delivery& delivery : deliveries) lines += line_of(delivery, now);
  const off_t before = lseek(file_.get(), 0, SEEK_END);
  const ssize_t written = write(file_.get(), lines.data(), lines.size());
  if (written == static_cast<ssize_t>(lines.size()) && fsync(file_.get()) == 0) return;
  const int why = written >= 0 ? ENOSPC : errno;
  // If even this fails, part of the lines stays, and they are written again later.
  [[maybe_unused]] const int ignored = ftruncate(file_.get(), before);
  errno = why;
  fail();
}

void DeadLetterFile::clear() const {
  if (ftruncate(file_.get(), 0) != 0) fail();
}

void DeadLetterFile::fail() const { throw std::runtime_error(path_ + ": " + std::strerror(errno)); }

}  // namespace corvane::alert
