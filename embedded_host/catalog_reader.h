// Answers queries of the catalog with JSON text.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "embedded_host/collection.h"
#include "embedded_host/query_string.h"
#include "sqlite/connection.h"

namespace corvane::host {

// The instants that decide what the catalog shows, in seconds since the epoch.
struct Instants {
  std::int64_t now;
  std::int64_t closed_until;  // jobs with a later end time are shown as still running
};

// One connection with its compiled queries, for use by one thread at a time.
class CatalogReader {
 public:
  // `stopping` ends a running query with QueryError. Throws CatalogError.
  CatalogReader(const std::string& path, const std::atomic<bool>& stopping);

  // {"data": [...], "meta": {"pagination": {...}}}. A page ends early, with "next" set, if its text
  // would exceed 32 MiB. Throws BadRequest, QueryError.
  std::string page(const Collection& collection, const PageQuery& query, Instants instants);

  // {"data": {...}}, or nothing if no such element exists yet. Throws QueryError.
  std::optional<std::string> element(const Collection& collection, std::string_view id,
                                     Instants instants);

 private:
  struct PageSql;
  Query& prepared(const std::string& sql);
  std::int64_t write_elements(std::string& out, Query& rows, const Collection& collection);
  std::int64_t count(const PageSql& sql, Instants instants);

  Connection database_;
  std::unordered_map<std::string, std::unique_ptr<Query>> queries_;  // by their text
};

}  // namespace corvane::host
