// The files that authenticate a request to the server, and the server to the request.
#pragma once

#include <sys/types.h>

#include <array>
#include <ctime>
#include <string>

namespace corvane {

struct Credentials {
  std::string authorities;  // PEM: the authorities that may issue the server's certificate
  std::string certificate;  // PEM: the client's
  std::string key;          // PEM: its private key, without a password
  bool operator==(const Credentials&) const = default;
};

// The product's names of the files of one certificate ("host", "service") in a directory.
Credentials credentials_in(const std::string& directory, const std::string& certificate);

struct FileTime {
  std::time_t seconds = 0;
  long nanoseconds = 0;
  bool operator==(const FileTime&) const = default;
};

// Identifies the files; two stamps differ if a file was replaced or rewritten in between. A missing
// file has a stamp too.
struct FileStamp {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  FileTime modified;
  FileTime changed;
  bool operator==(const FileStamp&) const = default;
};
using CredentialsStamp = std::array<FileStamp, 3>;
CredentialsStamp stamp_of(const Credentials& credentials);

// Why a private key must not be used: anyone but its owner has access to it, or its owner is
// neither this process's user nor root. Empty if it may be used; a file that cannot be examined is
// left for its reader to report.
std::string key_refusal(const std::string& key_path);

}  // namespace corvane
