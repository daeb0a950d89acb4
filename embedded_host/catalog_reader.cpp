#include "embedded_host/catalog_reader.h"

#include <algorithm>

#include "embedded_host/catalog.h"
#include "embedded_host/iso_time.h"
#include "embedded_host/json_writer.h"

namespace corvane::host {

namespace {

constexpr std::size_t kMaxPageText = std::size_t{32} << 20;
constexpr std::size_t kMaxQueries = 64;
constexpr int kStepsBetweenLooks = 10'000;

// Parameters: 1 and 2 the instants, 3 and 4 limit and offset, the filter's from 5 on.
constexpr int kFirstFilterParameter = 5;

std::string select_columns(const Collection& collection) {
  std::string columns = std::string(collection.type) + "," + std::string(collection.id);
  for (const FilterAttribute& attribute : collection.attributes) {
    columns += "," + std::string(attribute.sql);
  }
  if (!collection.json_attributes.empty()) columns += "," + std::string(collection.json_attributes);
  return columns;
}

void write_element(std::string& out, const Query& row, const Collection& collection) {
  JsonObject element(out);
  element.add("type", row.view(0));
  element.add("id", row.view(1));
  if (!collection.json_attributes.empty()) {
    element.add_json("attributes", row.view(2));
    return element.close();
  }
  element.begin_member("attributes");
  JsonObject attributes(out);
  int column = 2;
  for (const FilterAttribute& attribute : collection.attributes) {
    switch (attribute.kind) {
      case AttributeKind::kText:
        attributes.add(attribute.name, row.view(column));
        break;
      case AttributeKind::kInteger:
        attributes.add(attribute.name, row.integer(column));
        break;
      case AttributeKind::kReal:
        attributes.add(attribute.name, row.real(column));
        break;
      case AttributeKind::kTime:
        attributes.add(attribute.name, iso_time(row.integer(column)));
        break;
    }
    ++column;
  }
  attributes.close();
  element.close();
}

std::string order_by(const Collection& collection, const std::string& sort) {
  if (sort.empty()) return std::string(collection.default_order);
  const bool descending = sort.front() == '-';
  const std::string_view name = std::string_view(sort).substr(descending ? 1 : 0);
  const auto found =
      std::find_if(collection.filterable.begin(), collection.filterable.end(),
                   [&](const FilterAttribute& attribute) { return attribute.name == name; });
  if (found == collection.filterable.end()) {
    throw BadRequest("unknown attribute '" + printable(name) + "'", "sort");
  }
  const std::string direction = descending ? " DESC" : "";
  return std::string(found->sql) + direction + "," + std::string(collection.tie_break) + direction;
}

int look_for_stop(void* stopping) {
  return static_cast<const std::atomic<bool>*>(stopping)->load();
}

}  // namespace

struct CatalogReader::PageSql {
  std::string where;
  FilterSql filter;

  PageSql(const Collection& collection, const PageQuery& query)
      : where(" FROM " + std::string(collection.table) + " WHERE " +
              std::string(collection.visible)) {
    if (query.filter.empty()) return;
    try {
      filter = translate_filter(query.filter, collection.filterable, kFirstFilterParameter);
    } catch (const BadFilter& error) {
      throw BadRequest(error.what(), "filter, character " + std::to_string(error.position()));
    }
    where += " AND (" + filter.condition + ")";
  }

  void bind(Query& compiled, Instants instants, std::int64_t limit, std::int64_t offset) const {
    compiled.bind(instants.now).bind(instants.closed_until).bind(limit).bind(offset);
    for (const auto& value : filter.values) {
      std::visit([&](const auto& plain) { compiled.bind(plain); }, value);
    }
  }
};

CatalogReader::CatalogReader(const std::string& path, const std::atomic<bool>& stopping)
    : database_(open_catalog(path, Connection::Access::kRead)) {
  sqlite3_progress_handler(database_.handle(), kStepsBetweenLooks, look_for_stop,
                           const_cast<std::atomic<bool>*>(&stopping));
}

Query& CatalogReader::prepared(const std::string& sql) {
  const auto known = queries_.find(sql);
  if (known != queries_.end() && known->second != nullptr) return known->second->restart();
  if (queries_.size() >= kMaxQueries) queries_.clear();
  auto& [text, compiled] = *queries_.try_emplace(sql).first;
  compiled = std::make_unique<Query>(database_.handle(), text.c_str());  // keeps the text's address
  return *compiled;
}

std::int64_t CatalogReader::write_elements(std::string& out, Query& rows,
                                           const Collection& collection) {
  std::int64_t written = 0;
  while (rows.step()) {
    if (written > 0) out += ',';
    write_element(out, rows, collection);
    ++written;
    if (out.size() > kMaxPageText) {
      rows.restart();
      break;
    }
  }
  return written;
}

std::int64_t CatalogReader::count(const PageSql& sql, Instants instants) {
  Query& counting = prepared("SELECT count(*)" + sql.where + " LIMIT ?3 OFFSET ?4");
  sql.bind(counting, instants, 1, 0);
  return counting.first_integer();
}

std::string CatalogReader::page(const Collection& collection, const PageQuery& query,
                                Instants instants) {
  const std::int64_t limit = query.limit.value_or(collection.default_limit);
  if (limit > collection.max_limit) {
    throw BadRequest("above " + std::to_string(collection.max_limit), "page[limit]");
  }
  const PageSql sql(collection, query);
  const std::string select = "SELECT " + select_columns(collection) + sql.where + " ORDER BY " +
                             order_by(collection, query.sort) + " LIMIT ?3 OFFSET ?4";

  Transaction same_view(database_, Transaction::Kind::kSnapshot);  // the page and its count agree
  std::string out = "{\"data\":[";
  Query& rows = prepared(select);
  sql.bind(rows, instants, limit, query.offset);
  const std::int64_t written = write_elements(out, rows, collection);
  // A page that is not full is the last one, so its end is the count, unless it is past the end.
  const bool ends_here = written < limit && (written > 0 || query.offset == 0);
  const std::int64_t total =
      ends_here && out.size() <= kMaxPageText ? query.offset + written : count(sql, instants);
  same_view.commit();

  out += R"(],"meta":{"pagination":)";
  JsonObject pagination(out);
  pagination.add("offset", query.offset);
  pagination.add("limit", limit);
  pagination.add("count", total);
  // A page without elements must not name itself as the next one.
  if (written > 0 && query.offset + written < total) pagination.add("next", query.offset + written);
  pagination.close();
  out += "}}";
  return out;
}

std::optional<std::string> CatalogReader::element(const Collection& collection, std::string_view id,
                                                  Instants instants) {
  Query& rows = prepared(
      "SELECT " + select_columns(collection) + " FROM " + std::string(collection.table) +
      " WHERE " + std::string(collection.visible) + " AND " + std::string(collection.id) + "=?3");
  rows.bind(instants.now).bind(instants.closed_until).bind(id);
  std::string out = "{\"data\":";
  if (write_elements(out, rows, collection) == 0) return std::nullopt;
  return out + "}";
}

}  // namespace corvane::host
