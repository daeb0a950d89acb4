#include "embedded_host/filter.h"

#include <gtest/gtest.h>

namespace corvane::host {
namespace {

constexpr FilterAttribute kAttributes[] = {
    {"jobType", "job_type", AttributeKind::kText},
    {"status", "status", AttributeKind::kInteger},
    {"dedupRatio", "dedup_ratio", AttributeKind::kReal},
    {"startTime", "start_time", AttributeKind::kTime},
};

FilterSql translate(std::string_view filter) { return translate_filter(filter, kAttributes, 5); }

// "POSITION: REASON" of a filter that cannot be read.
std::string complaint(std::string_view filter) {
  try {
    const FilterSql sql = translate(filter);
    return "read as " + sql.condition;
  } catch (const BadFilter& error) {
    return std::to_string(error.position()) + ": " + error.what();
  }
}

TEST(Filter, TranslatesAGathersFilter) {
  const FilterSql sql = translate(
      "startTime ge 2024-01-01T00:00:00.000Z and startTime le 2024-01-01T01:00:00.000Z and "
      "(jobType eq 'BACKUP' or jobType eq 'SNAPDUPE')");
  EXPECT_EQ(sql.condition, "start_time>=?5 AND start_time<=?6 AND (job_type=?7 OR job_type=?8)");
  ASSERT_EQ(sql.values.size(), 4U);
  EXPECT_EQ(std::get<std::int64_t>(sql.values[0]), 1704067200);
  EXPECT_EQ(std::get<std::int64_t>(sql.values[1]), 1704070800);
  EXPECT_EQ(std::get<std::string>(sql.values[2]), "BACKUP");
  EXPECT_EQ(std::get<std::string>(sql.values[3]), "SNAPDUPE");
}

TEST(Filter, AndBindsCloserThanOr) {
  EXPECT_EQ(translate("status eq 1 or status eq 2 and status eq 3").condition,
            "status=?5 OR status=?6 AND status=?7");
  EXPECT_EQ(translate("(status eq 1 or status eq 2) and status eq 3").condition,
            "(status=?5 OR status=?6) AND status=?7");
}

TEST(Filter, ReadsValuesOfEveryKind) {
  EXPECT_EQ(std::get<std::int64_t>(translate("status eq -7").values[0]), -7);
  EXPECT_EQ(std::get<double>(translate("dedupRatio ge 1.25").values[0]), 1.25);
  EXPECT_EQ(std::get<double>(translate("dedupRatio ge 2e3").values[0]), 2000);
  EXPECT_EQ(std::get<double>(translate("status le 1.5").values[0]), 1.5);
  EXPECT_EQ(std::get<double>(translate("startTime ge 1970-01-01T00:00:01.250Z").values[0]), 1.25);
  EXPECT_EQ(std::get<std::string>(translate("jobType eq 'it''s'").values[0]), "it's");
  EXPECT_EQ(std::get<std::string>(translate("jobType eq ''").values[0]), "");
  EXPECT_EQ(std::get<std::string>(translate("jobType eq 'a) or (b'").values[0]), "a) or (b");
}

TEST(Filter, BlanksMayBeManyOrNone) {
  EXPECT_EQ(translate("  (  status   eq 1)and(jobType eq'x' ) ").condition,
            "(status=?5) AND (job_type=?6)");
}

TEST(Filter, NoTextOfTheFilterReachesTheSql) {
  const FilterSql sql = translate("jobType eq '''; DROP TABLE backups; --'");
  EXPECT_EQ(sql.condition, "job_type=?5");
  EXPECT_EQ(std::get<std::string>(sql.values[0]), "'; DROP TABLE backups; --");
}

TEST(Filter, SaysWhatItCannotReadAndWhere) {
  EXPECT_EQ(complaint(""), "1: expected an attribute");
  EXPECT_EQ(complaint("   "), "4: expected an attribute");
  EXPECT_EQ(complaint("colour eq 'x'"), "1: unknown attribute 'colour'");
  EXPECT_EQ(complaint("status"), "7: expected 'ge', 'le' or 'eq'");
  EXPECT_EQ(complaint("status lt 1"), "8: expected 'ge', 'le' or 'eq'");
  EXPECT_EQ(complaint("status EQ 1"), "8: expected 'ge', 'le' or 'eq'");
  EXPECT_EQ(complaint("status eq"), "10: status needs a number");
  EXPECT_EQ(complaint("status eq 'x'"), "11: status needs a number");
  EXPECT_EQ(complaint("status eq 1x"), "11: status needs a number");
  EXPECT_EQ(complaint("dedupRatio eq 1e999"), "15: dedupRatio needs a number");
  EXPECT_EQ(complaint("dedupRatio eq nan"), "15: dedupRatio needs a number");
  EXPECT_EQ(complaint("dedupRatio eq inf"), "15: dedupRatio needs a number");
  EXPECT_EQ(complaint("jobType eq BACKUP"), "12: jobType needs a text in single quotes");
  EXPECT_EQ(complaint("jobType eq 'BACKUP"), "12: the text has no closing quote");
  EXPECT_EQ(complaint("jobType eq '"), "12: the text has no closing quote");
  EXPECT_EQ(complaint("startTime ge '2024-01-01T00:00:00.000Z'"),
            "14: startTime needs a time without quotes");
  EXPECT_EQ(complaint("startTime ge yesterday"),
            "14: startTime needs a time such as 2026-01-31T04:05:06.000Z");
  EXPECT_EQ(complaint("(status eq 1"), "13: expected ')'");
  EXPECT_EQ(complaint("status eq 1)"), "12: expected 'and', 'or' or the end");
  EXPECT_EQ(complaint("()"), "2: expected an attribute");
  EXPECT_EQ(complaint("status eq 1 status eq 2"), "13: expected 'and', 'or' or the end");
  EXPECT_EQ(complaint("status eq 1 and"), "16: expected an attribute");
  EXPECT_EQ(complaint("and status eq 1"), "1: unknown attribute 'and'");
  EXPECT_EQ(complaint("status eq 1; DROP TABLE backups"), "12: cannot read ';'");
  EXPECT_EQ(complaint("Az_+ eq 1"), "1: unknown attribute 'Az_+'");
  EXPECT_EQ(complaint("\xff"), "1: cannot read '\\xff'");
  EXPECT_EQ(complaint(std::string_view("\0", 1)), "1: cannot read '\\x00'");
}

TEST(Filter, NothingBehindItsEndIsRead) {
  const auto cut = [](std::string_view text) { return text.substr(0, text.size() - 1); };
  EXPECT_EQ(std::get<std::int64_t>(translate(cut("status eq 12")).values[0]), 1);
  EXPECT_EQ(translate(cut("status eq 1 ")).condition, "status=?5");
  EXPECT_EQ(complaint(cut("jobType eq 'x'")), "12: the text has no closing quote");
  EXPECT_EQ(std::get<std::string>(translate(cut("jobType eq 'x''")).values[0]), "x");
}

TEST(Filter, ParenthesesMayBe32Deep) {
  const auto nested = [](std::size_t depth) {
    return std::string(depth, '(') + "status eq 1" + std::string(depth, ')');
  };
  EXPECT_EQ(translate(nested(32)).values.size(), 1U);
  EXPECT_EQ(complaint(nested(33)), "33: the parentheses are nested too deeply");
  EXPECT_EQ(complaint(std::string(1'000'000, '(')), "33: the parentheses are nested too deeply");
}

TEST(Filter, ComparisonsMayBe100) {
  const auto many = [](int comparisons) {
    std::string filter = "status eq 0";
    for (int i = 1; i < comparisons; ++i) filter += " or status eq 1";
    return filter;
  };
  EXPECT_EQ(translate(many(100)).values.size(), 100U);
  EXPECT_NE(complaint(many(101)).find("there are too many comparisons"), std::string::npos);
}

}  // namespace
}  // namespace corvane::host
