#include "embedded_host/catalog.h"

#include <cstring>
#include <stdexcept>

#include "embedded_host/json_writer.h"

namespace corvane::host {

namespace {

constexpr std::int64_t kApplicationId =
    0x43564361;  // "CVCa", so that no other file is mistaken for a catalog
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
  // The indexes have every column that a gather's filter uses, so that counting and skipping rows
  // does not touch the table.
  return sql +
         ");"
         "CREATE UNIQUE INDEX backups_by_backup_id ON backups(backup_id) WHERE backup_id <> '';"
         "CREATE INDEX backups_by_start ON backups(start_time, job_id, end_time, job_type);"
         "CREATE INDEX backups_by_image ON backups(backup_time, backup_id, end_time)"
         " WHERE backup_id <> '';"
         "CREATE TABLE reports(number INTEGER PRIMARY KEY, type TEXT NOT NULL, id TEXT NOT NULL,"
         " attributes TEXT NOT NULL, UNIQUE(type, id));";
}

std::int64_t application_id(Connection& database) {
  static constexpr char kSql[] = "PRAGMA application_id";
  return database.number(kSql);
}

Connection open_file(const std::string& path, Connection::Access access) {
  try {
    return {path, access};
  } catch (const QueryError& error) {
    const int reason = error.system_errno();
    throw CatalogError(path + ": " + (reason != 0 ? std::strerror(reason) : error.inner_message()));
  }
}

void make_tables(Connection& database, const std::string& path) {
  static constexpr char kCountTables[] = "SELECT count(*) FROM sqlite_schema";
  Transaction transaction(database);
  if (application_id(database) == kApplicationId) return;
  if (database.number(kCountTables) != 0) {
    throw CatalogError(path + ": not a catalog but another database");
  }
  database.execute(table_sql().c_str());
  database.execute(("PRAGMA application_id=" + std::to_string(kApplicationId)).c_str());
  transaction.commit();
}

}  // namespace

Connection open_catalog(const std::string& path, Connection::Access access) {
  Connection database = open_file(path, access);
  try {
    if (access == Connection::Access::kCreate) {
      make_tables(database, path);
      // After the check, so that a foreign database is not changed.
      database.execute("PRAGMA journal_mode=WAL");
    }
    // What is lost in a crash of the machine can be loaded again; the file stays intact in any
    // case.
    if (access != Connection::Access::kRead) database.execute("PRAGMA synchronous=NORMAL");
    if (application_id(database) != kApplicationId) throw CatalogError(path + ": not a catalog");
  } catch (const QueryError& error) {
    throw CatalogError(path + ": " + error.inner_message());
  }
  return database;
}

std::string plain_reason(const std::exception& error) {
  const auto* of_sqlite = dynamic_cast<const QueryError*>(&error);
  return of_sqlite != nullptr ? of_sqlite->inner_message() : error.what();
}

namespace {

std::string make_insert_sql() {
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

// One text for all connections: they identify queries by its address.
const std::string& insert_sql() {
  static const std::string sql = make_insert_sql();
  return sql;
}

}  // namespace

BackupWriter::BackupWriter(Connection& catalog) : insert_(catalog.query(insert_sql())) {}

void BackupWriter::put(const Backup& backup) {
  insert_.restart();
  for (const FieldValue& value : backup) {
    std::visit([&](const auto& plain) { insert_.bind(plain); }, value);
  }
  insert_.run();
}

bool put_report(Connection& catalog, std::string_view type, std::string_view id,
                std::string_view attributes) {
  static constexpr char kKnown[] = "SELECT 1 FROM reports WHERE type=? AND id=?";
  static constexpr char kPut[] =
      "INSERT INTO reports(type, id, attributes) VALUES(?,?,?)"
      " ON CONFLICT(type, id) DO UPDATE SET attributes=excluded.attributes";
  Transaction transaction(catalog);
  const bool is_new = !catalog.query(kKnown).bind(type).bind(id).has_row();
  catalog.query(kPut).bind(type).bind(id).bind(attributes).run();
  transaction.commit();
  return is_new;
}

void put_feedback(Connection& catalog, std::string_view anomaly_id, std::string_view feedback) {
  if (feedback != "FALSE_POSITIVE" && feedback != "CONFIRMED" && feedback != "NONE") {
    throw std::invalid_argument("the feedback must be FALSE_POSITIVE, CONFIRMED or NONE, not '" +
                                printable(feedback) + "'");
  }
  if (anomaly_id.empty() || anomaly_id.size() > kMaxAnomalyId) {
    throw std::invalid_argument("an anomaly's id must have 1 to 256 bytes");
  }
  std::string attributes;
  JsonObject object(attributes);
  object.add("feedback", feedback);
  object.close();
  put_report(catalog, kAnomalyFeedback, anomaly_id, attributes);
}

}  // namespace corvane::host
