#include "embedded_host/catalog.h"

#include <stdexcept>

#include "embedded_host/json_writer.h"

namespace corvane::host {

namespace {

constexpr std::int64_t kApplicationId =
    0x43564361;  // "CVCa", so that no other file is taken for one
constexpr std::size_t kMaxAnomalyId = 256;

std::string column_type(FieldKind kind) {
  switch (kind) {
    case FieldKind::kInteger:
    case FieldKind::kTime:
      return "INTEGER";
    case FieldKind::kReal:
      return "REAL";
    default:
      return "TEXT";
  }
}

std::string table_sql() {
  std::string sql = "CREATE TABLE backups(";
  for (const BackupField& field : backup_fields()) {
    if (&field != &backup_fields().front()) sql += ", ";
    sql += std::string(field.column) + " " + column_type(field.kind) +
           (field.column == "job_id" ? " PRIMARY KEY" : " NOT NULL");
  }
  // The indexes hold every column that a gather's filter looks at, so that counting and skipping
  // rows does not touch the table.
  return sql +
         ");"
         "CREATE UNIQUE INDEX backups_by_backup_id ON backups(backup_id) WHERE backup_id <> '';"
         "CREATE INDEX backups_by_start ON backups(start_time, job_id, end_time, job_type);"
         "CREATE INDEX backups_by_image ON backups(backup_time, backup_id, end_time)"
         " WHERE backup_id <> '';"
         "CREATE TABLE reports(number INTEGER PRIMARY KEY, type TEXT NOT NULL, id TEXT NOT NULL,"
         " attributes TEXT NOT NULL, UNIQUE(type, id));";
}

std::int64_t pragma_value(Database& database, const char* pragma) {
  Statement statement(database, pragma);
  statement.step();
  return statement.integer(0);
}

void make_tables(Database& database, const std::string& path) {
  Transaction transaction(database, "BEGIN IMMEDIATE");
  if (pragma_value(database, "PRAGMA application_id") == kApplicationId) return;
  if (pragma_value(database, "SELECT count(*) FROM sqlite_schema") != 0) {
    throw SqlError(path + ": not a catalog, some other database", SQLITE_NOTADB);
  }
  database.execute(table_sql().c_str());
  database.execute(("PRAGMA application_id=" + std::to_string(kApplicationId)).c_str());
  transaction.commit();
}

}  // namespace

Database open_catalog(const std::string& path, OpenMode mode) {
  Database database(path, mode);
  try {
    if (mode == OpenMode::kCreate) {
      make_tables(database, path);
      // After the check, so that a database that is not ours is left as it is.
      database.execute("PRAGMA journal_mode=WAL");
    }
    // What a crash of the machine takes away is loaded again; the file stays whole all the same.
    if (mode != OpenMode::kRead) database.execute("PRAGMA synchronous=NORMAL");
    if (pragma_value(database, "PRAGMA application_id") != kApplicationId) {
      throw SqlError(path + ": not a catalog", SQLITE_NOTADB);
    }
  } catch (const SqlError& error) {
    if (std::string_view(error.what()).starts_with(path)) throw;
    throw SqlError(path + ": " + error.what(), error.code());
  }
  return database;
}

namespace {

std::string insert_sql() {
  std::string columns;
  std::string places;
  std::string updates;
  for (const BackupField& field : backup_fields()) {
    const std::string column(field.column);
    columns += (columns.empty() ? "" : ",") + column;
    places += places.empty() ? "?" : ",?";
    if (column == "job_id") continue;
    if (!updates.empty()) updates += ",";
    updates.append(column).append("=excluded.").append(column);
  }
  return "INSERT INTO backups(" + columns + ") VALUES(" + places +
         ") ON CONFLICT(job_id) DO UPDATE SET " + updates;
}

}  // namespace

BackupWriter::BackupWriter(Database& catalog) : insert_(catalog, insert_sql()) {}

void BackupWriter::put(const Backup& backup) {
  int position = 0;
  for (const FieldValue& value : backup) {
    ++position;
    std::visit([&](const auto& plain) { insert_.bind(position, plain); }, value);
  }
  insert_.step();
}

bool put_report(Database& catalog, std::string_view type, std::string_view id,
                std::string_view attributes) {
  Transaction transaction(catalog, "BEGIN IMMEDIATE");
  Statement known(catalog, "SELECT count(*) FROM reports WHERE type=? AND id=?");
  known.bind(1, type);
  known.bind(2, id);
  known.step();
  const bool is_new = known.integer(0) == 0;
  known.reset();

  Statement put(catalog,
                "INSERT INTO reports(type, id, attributes) VALUES(?,?,?)"
                " ON CONFLICT(type, id) DO UPDATE SET attributes=excluded.attributes");
  put.bind(1, type);
  put.bind(2, id);
  put.bind(3, attributes);
  put.step();
  transaction.commit();
  return is_new;
}

void put_feedback(Database& catalog, std::string_view anomaly_id, std::string_view feedback) {
  if (feedback != "FALSE_POSITIVE" && feedback != "CONFIRMED" && feedback != "NONE") {
    throw std::invalid_argument("feedback is FALSE_POSITIVE, CONFIRMED or NONE, not '" +
                                printable(feedback) + "'");
  }
  if (anomaly_id.empty() || anomaly_id.size() > kMaxAnomalyId) {
    throw std::invalid_argument("an anomaly's id has 1 to 256 bytes");
  }
  std::string attributes;
  JsonObject object(attributes);
  object.add("feedback", feedback);
  object.close();
  put_report(catalog, kAnomalyFeedback, anomaly_id, attributes);
}

}  // namespace corvane::host
