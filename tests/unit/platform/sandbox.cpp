#include "tests/unit/platform/sandbox.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "tests/support/in_child.h"

namespace corvane::test {

namespace {

bool write_once(const char* path, const std::string& text) {
  std::ofstream out(path);
  out << text << std::flush;
  return out.good();
}

// An ordinary user may mount in a user namespace; the ids stay what they are.
bool enter_user_namespace() {
  const std::string user = std::to_string(geteuid());
  const std::string group = std::to_string(getegid());
  return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && write_once("/proc/self/setgroups", "deny") &&
         write_once("/proc/self/uid_map", user + " " + user + " 1") &&
         write_once("/proc/self/gid_map", group + " " + group + " 1");
}

}  // namespace

bool enter_sandbox() {
  if (geteuid() == 0 ? unshare(CLONE_NEWNS) != 0 : !enter_user_namespace()) return false;
  return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("none", "/usr", "tmpfs", 0, "mode=0755") == 0 && mkdir("/usr/tessel", 0755) == 0;
}

bool sandbox_is_possible() {
  return in_child([] {
           if (enter_sandbox()) return 0;
           std::printf("no mount namespace can be made here: %s\n", std::strerror(errno));
           return 2;
         }) == 0;
}

}  // namespace corvane::test
