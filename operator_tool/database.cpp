#include "operator_tool/database.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <vector>

#include "companions/common/error_text.h"
#include "util/directory.h"

namespace corvane::ctl {

namespace {

struct Table {
  const char* name;
  std::vector<const char*> columns;
};

// What the commands read.
const std::vector<Table>& tables() {
  static const std::vector<const char*> backup{
      "UNIQUE_KEY",     "BACKUP_ID",  "JOB_ID",      "BACKUP_TIME",
      "CLIENT",         "POLICY",     "POLICY_TYPE", "SCHEDULE_TYPE",
      "SCHEDULE_NAME",  "APP_TYPE",   "NUM_FILES",   "DESTINATION_STORAGE_NAME",
      "KB_TRANSFERRED", "DEDUP_RATE", "TOTAL_TIME",  "IMAGE_SIZE"};
  static const auto with = [](const char* column) {
    std::vector<const char*> columns = backup;
    columns.push_back(column);
    return columns;
  };
  static const std::vector<Table> all{
      {"HIST_DATA", with("USER_IDENTIFIED_CLUSTER")},
      {"DATA_TO_PROCESS", with("PROCESSED_STATUS")},
      {"ANOMALY_DATA",
       {"ANOMALY_UNIQUE_ID", "ANOMALY_DETAILS", "PROCESSED", "DETECTION_KEY", "CLIENT",
        "DETECTION_TIME"}},
      {"ANOMALY_DATA_FEEDBACK", {"ANOMALY_UNIQUE_ID", "FEEDBACK", "CAPTURE_TIME"}},
      {"LAST_BACKUP_DATA_CAPTURE", {"LAST_BACKUP_TIME"}},
      {"QUEUED_TO_CAPTURE_DATA", {"JOB_ID", "START_TIME"}}};
  return all;
}

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

bool says(const std::string& reason, int code) {
  return reason.find(sqlite3_errstr(code)) != std::string::npos;
}

}  // namespace

ReadOnlySource::ReadOnlySource(const std::string& path) : path_(path) {
  errno = 0;
  if (stat(path.c_str(), &seen_) != 0 || !S_ISREG(seen_.st_mode)) {
    const bool forbidden = errno == EACCES;
    throw Trouble(forbidden ? ExitStatus::kUnreadable : ExitStatus::kMissing,
                  forbidden ? "No right to look at " + path + "."
                            : "There is no anomaly database at " + path +
                                  ": has the service ever run here? --database names another.");
  }
  if (!std::ifstream(path)) {
    throw Trouble(ExitStatus::kUnreadable, "No right to read " + path + ".");
  }
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
    access_ = std::make_unique<DBAccess>(
        source_.uri(), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX);
    check_schema();
  } catch (const Trouble&) {
    check_unchanged();
    throw;
  } catch (const std::exception& error) {
    check_unchanged();
    throw trouble_of(path, error);
  }
}

Database::~Database() { queries_.clear(); }  // before the connection

Query& Database::query(const char* sql) { return queries_.get(handle(), sql); }

void Database::check_unchanged() const {
  if (source_.has_changed()) throw ChangedMeanwhile();
}

void Database::check_schema() {
  for (const Table& table : tables()) {
    Query columns(handle(), "SELECT name FROM pragma_table_info(?)");
    columns.bind(table.name);
    std::vector<std::string> found;
    while (columns.step()) found.push_back(columns.text(0));
    if (found.empty()) {
      throw Trouble(ExitStatus::kOlder, path() + " has no table " + table.name +
                                            ": it is no anomaly database, or one that the service "
                                            "of this version has not opened yet.");
    }
    for (const char* column : table.columns) {
      if (std::ranges::find(found, column) != found.end()) continue;
      throw Trouble(ExitStatus::kOlder, path() + " has no column " + column + " in table " +
                                            table.name +
                                            ": it is of another version than this tool.");
    }
  }
}

Trouble trouble_of(const std::string& path, const std::exception& error) {
  const std::string reason = reason_of(error);
  if (says(reason, SQLITE_BUSY) || says(reason, SQLITE_LOCKED)) {
    return {ExitStatus::kLocked,
            path + " is locked by another program, and stayed so for 5 seconds; try again."};
  }
  if (says(reason, SQLITE_CORRUPT) || says(reason, SQLITE_NOTADB)) {
    return {ExitStatus::kDamaged, path + " is damaged or no database at all."};
  }
  if (reason.find("no such ") != std::string::npos) {
    return {ExitStatus::kOlder, path + " is of another version than this tool: " + reason + "."};
  }
  if (says(reason, SQLITE_CANTOPEN) || says(reason, SQLITE_READONLY) || says(reason, SQLITE_PERM)) {
    return {ExitStatus::kUnreadable,
            path +
                " or its write-ahead log cannot be read by this user; try it "
                "as root or as the service's account."};
  }
  return {ExitStatus::kFailed, path + " cannot be read: " + reason + "."};
}

}  // namespace corvane::ctl
