// The filter language of the web service: what is accepted means in SQL what it says.
#include "embedded_host/filter.h"

#include <array>
#include <ctime>

#include "embedded_host/iso_time.h"
#include "embedded_host/sql.h"
#include "tests/fuzz/filter_meaning.h"
#include "tests/fuzz/fuzz.h"

using corvane::fuzz::Element;
using corvane::fuzz::require;
using corvane::host::AttributeKind;
using corvane::host::FilterAttribute;
using corvane::host::FilterSql;

namespace {

constexpr std::array<FilterAttribute, 4> kAttributes{
    {{"clientName", "client", AttributeKind::kText},
     {"jobId", "job", AttributeKind::kInteger},
     {"dedupRatio", "ratio", AttributeKind::kReal},
     {"startTime", "start", AttributeKind::kTime}}};

const std::vector<Element>& elements() {
  static const std::vector<Element> all{{"", 0, 0, 0},
                                        {"web01", 7, 1.5, 1769817600},
                                        {"it's", -1, 1e300, 1},
                                        {"WEB01", INT64_MAX, -0.25, 2147483647},
                                        {"\xC3\xBC", 1769817600, 7, -62167219200}};
  return all;
}

corvane::host::Database& database() {
  static corvane::host::Database db = [] {
    corvane::host::Database made(":memory:", corvane::host::OpenMode::kCreate);
    made.execute("CREATE TABLE t(client TEXT, job INTEGER, ratio REAL, start INTEGER)");
    corvane::host::Statement insert(made, "INSERT INTO t VALUES(?1,?2,?3,?4)");
    for (const Element& element : elements()) {
      insert.bind(1, std::string_view(element.client));
      insert.bind(2, element.job);
      insert.bind(3, element.ratio);
      insert.bind(4, element.start);
      insert.step();
    }
    return made;
  }();
  return db;
}

void check_meaning(const std::string& filter, const FilterSql& sql) {
  corvane::host::Statement select(database(), "SELECT " + sql.condition + " FROM t ORDER BY rowid");
  int position = 1;
  for (const auto& value : sql.values) {
    std::visit(
        [&](const auto& plain) {
          if constexpr (std::is_same_v<std::decay_t<decltype(plain)>, std::string>) {
            select.bind(position, std::string_view(plain));
          } else {
            select.bind(position, plain);
          }
        },
        value);
    ++position;
  }
  for (const Element& element : elements()) {
    require(select.step(), "a row for each element");
    require((select.integer(0) != 0) == corvane::fuzz::FilterMeaning(filter, element).holds(),
            "SQLite finds what the filter says", filter);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string filter = corvane::fuzz::text_of(data, size);
  FilterSql sql;
  try {
    sql = corvane::host::translate_filter(filter, kAttributes, 1);
  } catch (const corvane::host::BadFilter& error) {
    require(error.position() >= 1 && error.position() <= filter.size() + 1,
            "the complaint is about a place in the filter");
    const std::string_view reason = error.what();
    for (const char c : reason) require(c >= 0x20 && c < 0x7f, "the complaint is printable");
    return 0;
  }
  require(sql.values.size() <= 100, "comparisons are bounded");
  require(sql.condition.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789?()<>= ANDOR") ==
              std::string::npos,
          "no text of the filter stands in the condition");
  check_meaning(filter, sql);

  const std::string again = corvane::fuzz::filter_text(sql, kAttributes);
  const FilterSql same = corvane::host::translate_filter(again, kAttributes, 1);
  require(same.condition == sql.condition && same.values == sql.values,
          "a filter written from its meaning is read alike", again);
  return 0;
}
