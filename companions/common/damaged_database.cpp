#include "companions/common/damaged_database.h"

#include <filesystem>
#include <system_error>

namespace corvane {

void move_damaged_database_aside(const std::string& path) {
  std::error_code ignored;
  std::filesystem::rename(path, path + ".damaged", ignored);
  // They belong to the damaged file; a new one would take them for its own.
  for (const char* suffix : {"-wal", "-shm"}) std::filesystem::remove(path + suffix, ignored);
}

}  // namespace corvane
