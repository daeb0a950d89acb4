#include "platform/service_account.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <vector>

#include "platform/master_config.h"

namespace corvane {

namespace {

constexpr std::size_t kFirstEntryRoom = 4096;
constexpr std::size_t kMostEntryRoom = std::size_t{1} << 20;

struct Ids {
  uid_t user;
  gid_t group;
};

// Calls ask(passwd&, char*, size_t, passwd*&), one of the getpw..._r(), and use(passwd&) with what
// it has found. Returns an empty text, or why that failed.
template <typename Ask, typename Use>
std::string look_up(Ask ask, Use use) {
  for (std::vector<char> room(kFirstEntryRoom);; room.resize(2 * room.size())) {
    passwd entry{};
    passwd* found = nullptr;
    const int error = ask(entry, room.data(), room.size(), found);
    if (error == ERANGE && room.size() < kMostEntryRoom) continue;
    if (error != 0) return std::strerror(error);
    if (found == nullptr) return "no such account";
    use(entry);
    return "";
  }
}

std::string find_account(const std::string& account, Ids& ids) {
  return look_up(
      [&](passwd& entry, char* room, std::size_t size, passwd*& found) {
        return getpwnam_r(account.c_str(), &entry, room, size, &found);
      },
      [&](const passwd& entry) {
        ids = {entry.pw_uid, entry.pw_gid};
      });
}

std::string find_name(uid_t user, std::string& name) {
  return look_up([&](passwd& entry, char* room, std::size_t size,
                     passwd*& found) { return getpwuid_r(user, &entry, room, size, &found); },
                 [&](const passwd& entry) { name = entry.pw_name; });
}

std::string system_error(std::string_view call) {
  return std::string(call) + ": " + std::strerror(errno);
}

bool holds_only(const Ids& ids) {
  uid_t users[3];
  gid_t groups[3];
  if (getresuid(&users[0], &users[1], &users[2]) != 0) return false;
  if (getresgid(&groups[0], &groups[1], &groups[2]) != 0) return false;
  for (const uid_t user : users) {
    if (user != ids.user) return false;
  }
  for (const gid_t group : groups) {
    if (group != ids.group) return false;
  }
  return ids.user == 0 || setuid(0) != 0;
}

}  // namespace

std::string take_account(const std::string& account) {
  Ids ids{};
  if (std::string reason = find_account(account, ids); !reason.empty()) return reason;
  if (initgroups(account.c_str(), ids.group) != 0) return system_error("initgroups");
  if (setresgid(ids.group, ids.group, ids.group) != 0) return system_error("setresgid");
  if (setresuid(ids.user, ids.user, ids.user) != 0) return system_error("setresuid");
  return holds_only(ids) ? "" : "root could be regained";
}

std::string take_owner(const std::string& path) {
  struct stat file {};
  if (geteuid() != 0 || stat(path.c_str(), &file) != 0 || file.st_uid == 0) return "";
  std::string account;
  std::string reason = find_name(file.st_uid, account);
  if (reason.empty()) reason = take_account(account);
  return reason.empty() ? "" : "cannot run as the owner of " + path + ": " + reason;
}

std::string take_configured_account(const std::string& config_path) {
  if (geteuid() != 0) return "";
  const auto settings = read_master_settings(config_path);
  if (!settings) {
    const bool missing = access(config_path.c_str(), F_OK) != 0 && errno == ENOENT;
    return missing ? "" : "cannot read the service account from " + config_path;
  }
  const std::string& account = settings->service_account;
  if (account.empty()) return "";
  const std::string reason = take_account(account);
  return reason.empty() ? "" : "cannot run as service account '" + account + "': " + reason;
}

}  // namespace corvane
