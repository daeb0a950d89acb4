// Directory helpers. Nothing is logged or thrown.
#pragma once

#include <string>
#include <vector>

class Directory {
 public:
  // True for any existing path, including a regular file.
  static bool CanAccess(const std::string& path);
  static bool Exists(const std::string& path);

  // 0 if the path does not exist, else the result of unlink(2).
  static int UnlinkFile(const std::string& path);

  // The result of rmdir(2).
  static int RmDir(const std::string& path);

  // Mode 0755 minus the umask; parents are not created, and a failure is not reported.
  static void MkDir(const std::string& path);

  // False for a symbolic link to a folder.
  static bool is_folder(const std::string& path);

  // The names, in directory order, of the entries that are folders (without "." and ".."), or that
  // are not. The forms with `out` append to it; a directory that cannot be opened has no entries.
  static void GetDirectories(const std::string& path, std::vector<std::string>& out);
  static std::vector<std::string> GetDirectories(const std::string& path);
  static void GetFiles(const std::string& path, std::vector<std::string>& out);
  static std::vector<std::string> GetFiles(const std::string& path);
};
