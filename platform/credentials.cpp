#include "platform/credentials.h"

#include <sys/stat.h>
#include <unistd.h>

namespace corvane {

namespace {

FileTime file_time(const timespec& time) { return {time.tv_sec, time.tv_nsec}; }

FileStamp file_stamp(const std::string& path) {
  struct stat info {};
  if (stat(path.c_str(), &info) != 0) return {};
  return {info.st_dev, info.st_ino, info.st_size, file_time(info.st_mtim), file_time(info.st_ctim)};
}

}  // namespace

Credentials credentials_in(const std::string& directory, const std::string& certificate) {
  const std::string base = directory + "/" + certificate;
  return {directory + "/ca.pem", base + ".pem", base + ".key"};
}

CredentialsStamp stamp_of(const Credentials& credentials) {
  return {file_stamp(credentials.authorities), file_stamp(credentials.certificate),
          file_stamp(credentials.key)};
}

std::string key_refusal(const std::string& key_path) {
  struct stat info {};
  if (stat(key_path.c_str(), &info) != 0) return "";
  if ((info.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    return "private key " + key_path + " is refused: others than its owner have access to it";
  }
  if (info.st_uid != geteuid() && info.st_uid != 0) {
    return "private key " + key_path + " is refused: it belongs to another user";
  }
  return "";
}

}  // namespace corvane
