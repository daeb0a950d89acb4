#include "health/places.h"

#include <filesystem>

#include "companions/alert/options.h"
#include "companions/detect/verdict_database.h"
#include "coverage/options.h"
#include "util/path.h"

namespace corvane::health {

namespace {

template <typename Options>
std::string own_database(const std::string& database) {
  const std::filesystem::path path(database);
  Options options;
  options.database_location = path.has_parent_path() ? path.parent_path().string() : ".";
  options.database_file_name = path.filename().string();
  return options.own_file(".db");
}

}  // namespace

std::string Places::log_file(const std::string& program) const {
  return Path::Combine(logs, program);
}

Places places_of(const std::string& database, const std::string& config, const std::string& logs) {
  return {database,
          config,
          logs,
          own_database<alert::Options>(database),
          own_database<coverage::Options>(database),
          detect::verdict_database_path(database)};
}

}  // namespace corvane::health
