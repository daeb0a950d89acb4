#include "companions/common/own_database.h"

#include <stdexcept>

namespace corvane {

namespace {

constexpr char kGet[] = "SELECT value FROM meta WHERE name = ?";
constexpr char kSet[] = "INSERT OR REPLACE INTO meta VALUES (?, ?)";

}  // namespace

OwnDatabase::OwnDatabase(const std::string& path, Access access, std::int64_t newest,
                         std::chrono::milliseconds patience)
    : Connection(path, access, patience) {
  if (const std::int64_t found = version(); found > newest) {
    throw std::runtime_error(path + " is version " + std::to_string(found) +
                             ", newer than this program supports");
  }
  if (access != Access::kCreate) return;
  execute("PRAGMA journal_mode=WAL");
  execute("PRAGMA synchronous=NORMAL");
}

std::int64_t OwnDatabase::version() {
  return Query(handle(), "PRAGMA user_version").first_integer();
}

std::int64_t OwnDatabase::number_of(std::string_view name) {
  return query(kGet).bind(name).first_integer();
}

void OwnDatabase::set_number(std::string_view name, std::int64_t number) {
  query(kSet).bind(name).bind(number).run();
}

std::string OwnDatabase::text_of(std::string_view name) {
  Query& row = query(kGet).bind(name);
  std::string text = row.step() ? row.text(0) : "";
  row.restart();
  return text;
}

void OwnDatabase::set_text(std::string_view name, std::string_view text) {
  query(kSet).bind(name).bind(text).run();
}

}  // namespace corvane
