// The query of a request to the web service, from its bytes to the page that answers it.
#include "embedded_host/query_string.h"

#include <atomic>

#include "embedded_host/catalog_reader.h"
#include "tests/fuzz/fuzz.h"
#include "tests/unit/embedded_host/catalog_world.h"

using corvane::fuzz::require;
using corvane::host::BadRequest;
using corvane::host::CatalogReader;
using corvane::host::Collection;
using corvane::host::PageQuery;
namespace world = corvane::host::test;

namespace {

constexpr int kBackups = 12;
constexpr corvane::host::Instants kNow{world::kDay + 6 * 60, world::kDay + 5 * 60};

CatalogReader& reader() {
  static world::CatalogWorld catalog;
  static const std::atomic<bool> stopping = false;
  static CatalogReader the_reader = [] {
    std::vector<std::string> lines{world::full_line()};
    for (int i = 1; i < kBackups; ++i) {
      lines.push_back(world::backup_line(i, world::kDay + i * 60, 90, R"(,"kbytes":7)"));
    }
    require(catalog.load(lines).empty(), "the catalog is loaded");
    auto writable = corvane::host::open_catalog(catalog.path, corvane::Connection::Access::kWrite);
    corvane::host::put_feedback(writable, "anomaly_1", "FALSE_POSITIVE");
    corvane::host::put_feedback(writable, "anomaly_2", "CONFIRMED");
    return CatalogReader(catalog.path, stopping);
  }();
  return the_reader;
}

std::string encoded(const std::string& text) {
  std::string out;
  for (const char c : text) {
    char escape[4];
    std::snprintf(escape, sizeof escape, "%%%02x", static_cast<unsigned char>(c));
    out += escape;
  }
  return out;
}

std::string encoded(const PageQuery& query) {
  std::string text = "page%5Boffset%5D=" + std::to_string(query.offset);
  if (query.limit) text += "&page[limit]=" + std::to_string(*query.limit);
  return text + "&sort=" + encoded(query.sort) + "&&filter=" + encoded(query.filter);
}

void check_complaint(const BadRequest& error) {
  for (const char c : error.what() + error.where()) {
    require(c >= 0x20 && c < 0x7f, "the complaint is printable");
  }
}

std::int64_t page_figure(const json_t* root, const char* name) {
  return json_integer_value(
      json_object_get(json_object_get(json_object_get(root, "meta"), "pagination"), name));
}

// The page is the part of the whole answer that was asked for.
void check_page(const Collection& collection, const PageQuery& query) {
  PageQuery whole{.sort = query.sort, .filter = query.filter};
  std::string answer;
  std::string all;
  try {
    answer = reader().page(collection, query, kNow);
    all = reader().page(collection, whole, kNow);
  } catch (const BadRequest& error) {
    return check_complaint(error);
  }
  const auto root = world::parse(answer);
  require(root != nullptr, "the answer is JSON", answer);
  const auto ids = world::ids(answer);
  const auto all_ids = world::ids(all);
  const auto total = static_cast<std::int64_t>(all_ids.size());
  const std::int64_t limit = query.limit.value_or(collection.default_limit);
  const std::int64_t begin = std::min(query.offset, total);
  const std::int64_t end = std::min(begin + limit, total);
  require(ids == std::vector<std::string>(all_ids.begin() + begin, all_ids.begin() + end),
          "a page is a part of the whole", answer);
  require(page_figure(root.get(), "count") == total, "the count is of the whole", answer);
  require(page_figure(root.get(), "next") == (end < total && begin < end ? end : 0),
          "the next page follows", answer);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = corvane::fuzz::text_of(data, size);
  require(corvane::host::percent_decode(encoded(text), "") == text, "encoding is undone");
  PageQuery query;
  try {
    query = corvane::host::parse_page_query(text);
  } catch (const BadRequest& error) {
    check_complaint(error);
    return 0;
  }
  const PageQuery again = corvane::host::parse_page_query(encoded(query));
  require(again.offset == query.offset && again.limit == query.limit && again.sort == query.sort &&
              again.filter == query.filter,
          "a query written anew is read alike");
  for (const Collection& collection : corvane::host::collections()) check_page(collection, query);
  return 0;
}
