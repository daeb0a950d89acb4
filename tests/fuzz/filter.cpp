// The filter language of the web service: what is accepted means in SQL what it says.
#include "embedded_host/filter.h"

#include <array>
#include <ctime>

#include "embedded_host/iso_time.h"
#include "sqlite/connection.h"
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

corvane::Connection& database() {
  static corvane::Connection db = [] {
    corvane::Connection made(":memory:", corvane::Connection::Access::kCreate);
    made.execute("CREATE TABLE t(client TEXT, job INTEGER, ratio REAL, start INTEGER)");
    for (const Element& element : elements()) {
      made.query("INSERT INTO t VALUES(?1,?2,?3,?4)")
          .bind(element.client)
          .bind(element.job)
          .bind(element.ratio)
          .bind(element.start)
          .run();
    }
    return made;
  }();
  return db;
}

void check_meaning(const std::string& filter, const FilterSql& sql) {
  const std::string text = "SELECT " + sql.condition + " FROM t ORDER BY rowid";
  corvane::Query select(database().handle(), text.c_str());
  for (const auto& value : sql.values) {
    std::visit([&](const auto& plain) { select.bind(plain); }, value);
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
