#include "health/database.h"

#include <sqlite3.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "anomaly_database/anomaly_database.h"
#include "anomaly_database/schema.h"
#include "companions/common/error_text.h"
#include "util/directory.h"

namespace corvane::health {

namespace {

std::string escaped(const std::string& path) {
  constexpr std::string_view kHex = "0123456789ABCDEF";
  constexpr std::string_view kPlain = "/._-~";
  std::string text;
  for (const char letter : path) {
    const auto byte = static_cast<unsigned char>(letter);
    const bool plain = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                       (byte >= 'a' && byte <= 'z') ||
                       kPlain.find(letter) != std::string_view::npos;
    if (plain) {
      text += letter;
    } else {
      text += '%';
      text += kHex[byte >> 4U];
      text += kHex[byte & 0xFU];
    }
  }
  return text;
}

}  // namespace

ReadOnlySource::ReadOnlySource(const std::string& path) : path_(path) {
  errno = 0;
  if (stat(path.c_str(), &seen_) != 0 || !S_ISREG(seen_.st_mode)) {
    if (errno == EACCES) throw permission_denied(path);
    throw Trouble(ExitStatus::kMissing, "Database not found: " + path +
                                            ". Has the service ever run here? Use --database to "
                                            "name another file.");
  }
  if (!std::ifstream(path)) throw permission_denied(path);
  is_still_ = is_unused_log_database();
  std::error_code error;
  const std::string absolute = std::filesystem::absolute(path, error).string();
  uri_ =
      "file:" + escaped(error ? path : absolute) + "?mode=ro" + (is_still_ ? "&immutable=1" : "");
}

// Byte 18 of the file tells that it is used with a write-ahead log.
bool ReadOnlySource::is_unused_log_database() const {
  std::array<char, 20> begin{};
  std::ifstream file(path_, std::ios::binary);
  if (!file.read(begin.data(), begin.size()) || begin[18] != 2) return false;
  return !Directory::CanAccess(path_ + "-wal");
}

bool ReadOnlySource::has_changed() const {
  if (!is_still_) return false;
  struct stat now {};
  if (stat(path_.c_str(), &now) != 0) return true;
  const bool same = now.st_ino == seen_.st_ino && now.st_size == seen_.st_size &&
                    now.st_mtim.tv_sec == seen_.st_mtim.tv_sec &&
                    now.st_mtim.tv_nsec == seen_.st_mtim.tv_nsec;
  return !same || Directory::CanAccess(path_ + "-wal");
}

Database::Database(const std::string& path) : source_(path) {
  try {
    connection_ = std::make_unique<Connection>(open_for_reading(source_.uri()));
    if (const std::string missing = missing_part(*connection_); !missing.empty()) {
      throw Trouble(ExitStatus::kOlder,
                    path + " has no " + missing +
                        (missing.starts_with("table")
                             ? ". It is not an anomaly database, or this version of the service "
                               "has not opened it yet."
                             : ". It is from another version of the service."));
    }
  } catch (const Trouble&) {
    check_unchanged();
    throw;
  } catch (const std::exception& error) {
    check_unchanged();
    throw trouble_of(path, error);
  }
}

void Database::check_unchanged() const {
  if (source_.has_changed()) throw ChangedMeanwhile();
}

Trouble permission_denied(const std::string& path) {
  return {ExitStatus::kUnreadable, "Cannot read " + path + ": permission denied."};
}

Trouble trouble_of(const std::string& path, const std::exception& error) {
  const auto* refused = dynamic_cast<const QueryError*>(&error);
  switch (refused == nullptr ? SQLITE_OK : refused->code()) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return {ExitStatus::kLocked, path + " is locked by another program. Try again later."};
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      return {ExitStatus::kDamaged, path + " is damaged or is not a database."};
    case SQLITE_CANTOPEN:
    case SQLITE_READONLY:
    case SQLITE_PERM:
      return {ExitStatus::kUnreadable,
              "Cannot read " + path +
                  " or its write-ahead log: permission denied. Try again as root or as the "
                  "service account."};
    default:
      break;
  }
  const std::string reason = reason_of(error);
  if (reason.find("no such ") != std::string::npos) {
    return {ExitStatus::kOlder, path + " is from another version of the service: " + reason + "."};
  }
  return {ExitStatus::kFailed, "Cannot read " + path + ": " + reason + "."};
}

}  // namespace corvane::health
