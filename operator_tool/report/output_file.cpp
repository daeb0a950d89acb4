#include "operator_tool/report/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "health/trouble.h"
#include "platform/descriptor.h"

namespace corvane::ctl {

namespace {

bool write_all(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

mode_t creation_mode() {
  const mode_t mask = umask(022);
  umask(mask);
  return 0644 & ~mask;
}

[[noreturn]] void fail(const std::string& path, const std::string& why) {
  throw health::Trouble(health::ExitStatus::kFailed, "Cannot write " + path + ": " + why + ".");
}

// A pipe or a device would be gone afterwards, with a file in its place. A link may lead out of
// its directory to a file that whoever made the link may not change.
void check_replaceable(const std::string& path) {
  struct stat former {};
  if (lstat(path.c_str(), &former) != 0 || S_ISREG(former.st_mode)) return;
  if (S_ISLNK(former.st_mode)) fail(path, "it is a symbolic link; name the file itself");
  fail(path, S_ISDIR(former.st_mode) ? "it is a directory" : "it is not a regular file");
}

}  // namespace

void replace_file(const std::string& path, std::string_view text) {
  check_replaceable(path);
  const std::filesystem::path target(path);
  // Hidden, and with another ending: programs that collect the files of a directory skip it.
  std::string scratch =
      (target.parent_path() / ("." + target.filename().string() + ".XXXXXX")).string();
  const Descriptor file(mkostemp(scratch.data(), O_CLOEXEC));
  if (!file.is_open()) fail(path, std::strerror(errno));
  if (write_all(file.get(), text) && fchmod(file.get(), creation_mode()) == 0 &&
      fsync(file.get()) == 0 && std::rename(scratch.c_str(), path.c_str()) == 0) {
    return;
  }
  const std::string why = std::strerror(errno);
  unlink(scratch.c_str());
  fail(path, why);
}

}  // namespace corvane::ctl
