#include "companions/alert/channel/secret_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "platform/descriptor.h"

namespace corvane::alert {

namespace {

constexpr std::size_t kMostBytes = 4096;

[[noreturn]] void refuse(const std::string& path, const std::string& why) {
  throw std::runtime_error("secret file " + path + " cannot be used: " + why);
}

}  // namespace

std::string why_not_secret(const struct stat& file, uid_t user) {
  if (!S_ISREG(file.st_mode)) return "it is not a regular file";
  if (file.st_uid != user && file.st_uid != 0) return "it belongs to another user";
  if ((file.st_mode & (S_IRWXG | S_IRWXO)) != 0)
    return "other users have access to it; set its mode to 0600";
  return {};
}

std::string read_secret(const std::string& path) {
  // Without blocking: it might be a pipe that nobody writes to.
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file.is_open()) refuse(path, std::strerror(errno));
  struct stat found {};
  const std::string why_not =
      fstat(file.get(), &found) == 0 ? why_not_secret(found, geteuid()) : std::strerror(errno);
  if (!why_not.empty()) refuse(path, why_not);
  std::array<char, kMostBytes + 1> content{};
  const ssize_t bytes = read(file.get(), content.data(), content.size());
  if (bytes == -1) refuse(path, std::strerror(errno));
  std::string secret(content.data(), static_cast<std::size_t>(bytes));
  if (secret.size() > kMostBytes) refuse(path, "it is longer than 4 KiB");
  if (secret.ends_with('\n')) secret.pop_back();
  if (secret.ends_with('\r')) secret.pop_back();
  if (secret.empty()) refuse(path, "it is empty");
  return secret;
}

}  // namespace corvane::alert
