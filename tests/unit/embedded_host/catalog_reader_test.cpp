#include "embedded_host/catalog_reader.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>

#include "tests/support/sql.h"
#include "tests/unit/embedded_host/catalog_world.h"

namespace corvane::host {
namespace {

using test::backup_line;
using test::full_line;
using test::ids;
using test::kDay;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const Collection& collection(std::string_view path) {
  return *std::find_if(collections().begin(), collections().end(),
                       [&](const Collection& known) { return known.path == path; });
}

class CatalogReaderTest : public ::testing::Test {
 protected:
  static Instants at(std::int64_t now) { return {now, now}; }

  CatalogReader& reader() {
    if (!reader_) reader_.emplace(world_.path, stopping_);
    return *reader_;
  }

  std::string jobs(std::int64_t now, const PageQuery& query = {}) {
    return reader().page(jobs_, query, at(now));
  }
  std::string images(std::int64_t now, const PageQuery& query = {}) {
    return reader().page(images_, query, at(now));
  }

  // An attribute of the answer's first element, as JSON.
  static std::string attribute(const std::string& answer, const char* name) {
    const JsonPtr root = test::parse(answer);
    const json_t* element = json_array_get(json_object_get(root.get(), "data"), 0);
    const json_t* value = json_object_get(json_object_get(element, "attributes"), name);
    const std::unique_ptr<char, decltype(&free)> text(json_dumps(value, JSON_ENCODE_ANY), free);
    return text ? text.get() : "absent";
  }

  // "offset limit count next" of an answer; "-" for what is absent.
  static std::string pagination(const std::string& answer) {
    const JsonPtr root = test::parse(answer);
    const json_t* page = json_object_get(json_object_get(root.get(), "meta"), "pagination");
    std::string text;
    for (const char* name : {"offset", "limit", "count", "next"}) {
      const json_t* number = json_object_get(page, name);
      text += (text.empty() ? "" : " ") +
              (number ? std::to_string(json_integer_value(number)) : std::string("-"));
    }
    return text;
  }

  test::CatalogWorld world_;
  const Collection& jobs_ = collection("corvane/admin/jobs");
  const Collection& images_ = collection("corvane/catalog/images");
  const Collection& anomalies_ = collection("corvane/wui/anomalies");
  std::atomic<bool> stopping_ = false;
  std::optional<CatalogReader> reader_;
};

TEST_F(CatalogReaderTest, AJobIsWhatTheCatalogSays) {
  world_.load({full_line()});
  EXPECT_EQ(
      jobs(kDay + 60),
      R"({"data":[{"type":"job","id":"42","attributes":{"jobId":42,"parentJobId":41,)"
      R"("jobType":"BACKUP","state":"DONE","status":1,"clientName":"web01","policyName":"web",)"
      R"("policyType":"STANDARD","scheduleName":"daily","scheduleType":"FULL",)"
      R"("backupId":"web01_1769817600","startTime":"2026-01-31T00:00:00.000Z",)"
      R"("endTime":"2026-01-31T00:01:00.000Z","kilobytesTransferred":1000,"numberOfFiles":301,)"
      R"("dedupRatio":2.5,"streamNumber":7,"destinationStorageUnitName":"disk",)"
      R"("applicationType":"FILES","percentComplete":100}}],)"
      R"("meta":{"pagination":{"offset":0,"limit":100,"count":1}}})");
}

TEST_F(CatalogReaderTest, AnImageIsWhatTheCatalogSays) {
  world_.load({full_line()});
  const std::string element =
      R"({"type":"image","id":"web01_1769817600","attributes":{"clientName":"web01",)"
      R"("policyName":"web","policyType":"STANDARD","scheduleName":"daily","scheduleType":"FULL",)"
      R"("backupTime":"2026-01-30T23:00:00.000Z","jobId":42,"numFiles":300,"kbytes":2048,)"
      R"("streamNumber":7,"providerGeneratedId":"asset-1"}})";
  EXPECT_EQ(
      images(kDay + 60),
      "{\"data\":[" + element + R"(],"meta":{"pagination":{"offset":0,"limit":100,"count":1}}})");
  EXPECT_EQ(reader().element(images_, "web01_1769817600", at(kDay + 60)),
            "{\"data\":" + element + "}");
  EXPECT_EQ(reader().element(images_, "web01", at(kDay + 60)), std::nullopt);
}

TEST_F(CatalogReaderTest, ABackupComesAboutInTime) {
  world_.load({backup_line(1, kDay, 200, ",\"kilobytesTransferred\":1000,\"numFiles\":10")});
  EXPECT_THAT(ids(jobs(kDay - 1)), IsEmpty());
  EXPECT_THAT(ids(images(kDay - 1)), IsEmpty());

  EXPECT_THAT(ids(jobs(kDay)), ElementsAre("1"));
  EXPECT_EQ(attribute(jobs(kDay), "state"), "\"ACTIVE\"");
  EXPECT_EQ(attribute(jobs(kDay), "percentComplete"), "0");
  EXPECT_THAT(ids(images(kDay)), IsEmpty());

  const std::string running = jobs(kDay + 150);
  EXPECT_EQ(attribute(running, "state"), "\"ACTIVE\"");
  EXPECT_EQ(attribute(running, "endTime"), "\"1970-01-01T00:00:00.000Z\"");
  EXPECT_EQ(attribute(running, "percentComplete"), "75");
  EXPECT_EQ(attribute(running, "kilobytesTransferred"), "750");
  EXPECT_EQ(attribute(running, "numberOfFiles"), "7");
  EXPECT_EQ(attribute(jobs(kDay + 199), "percentComplete"), "99");
  EXPECT_EQ(reader().element(images_, "web01_1769817600", at(kDay + 199)), std::nullopt);

  const std::string done = jobs(kDay + 200);
  EXPECT_EQ(attribute(done, "state"), "\"DONE\"");
  EXPECT_EQ(attribute(done, "endTime"), "\"2026-01-31T00:03:20.000Z\"");
  EXPECT_EQ(attribute(done, "kilobytesTransferred"), "1000");
  EXPECT_THAT(ids(images(kDay + 200)), ElementsAre("web01_1769817600"));
}

TEST_F(CatalogReaderTest, AnImageCanBeThereBeforeItsJobIsClosed) {
  world_.load({backup_line(1, kDay, 100)});
  const Instants closing{kDay + 110, kDay + 50};
  const std::string job = reader().page(jobs_, {}, closing);
  EXPECT_EQ(attribute(job, "state"), "\"ACTIVE\"");
  EXPECT_EQ(attribute(job, "endTime"), "\"1970-01-01T00:00:00.000Z\"");
  EXPECT_EQ(attribute(job, "percentComplete"), "99");
  EXPECT_THAT(ids(reader().page(images_, {}, closing)), ElementsAre("web01_1769817600"));
}

TEST_F(CatalogReaderTest, AGathersTimeFilterSeesRunningJobs) {
  world_.load(
      {backup_line(1, kDay, 10), backup_line(2, kDay + 50, 1000), backup_line(3, kDay + 60, 1)});
  const PageQuery query{.sort = "-startTime",
                        .filter =
                            "startTime ge 2026-01-31T00:00:00.000Z and endTime le "
                            "2026-01-31T00:00:55.000Z and (jobType eq 'BACKUP')"};
  EXPECT_THAT(ids(jobs(kDay + 100, query)), ElementsAre("2", "1"));
}

TEST_F(CatalogReaderTest, NoFilterShowsWhatHasNotHappened) {
  world_.load({backup_line(1, kDay, 10)});
  const PageQuery query{.filter = "jobId eq 7 or clientName eq 'web01'"};
  EXPECT_THAT(ids(jobs(kDay - 1, query)), IsEmpty());
  EXPECT_THAT(ids(images(kDay + 9, query)), IsEmpty());
  EXPECT_THAT(ids(jobs(kDay, query)), ElementsAre("1"));
}

TEST_F(CatalogReaderTest, AJobWithoutBackupIdHasNoImage) {
  std::string line = backup_line(1, kDay, 10);
  line.replace(line.find("web01_"), std::string("web01_1769817600").size(), "");
  world_.load({line});
  EXPECT_THAT(ids(jobs(kDay + 100)), ElementsAre("1"));
  EXPECT_THAT(ids(images(kDay + 100)), IsEmpty());
}

TEST_F(CatalogReaderTest, PagesTogetherAreTheWhole) {
  std::vector<std::string> lines;
  for (int i = 1; i <= 231; ++i)
    lines.push_back(
        backup_line(i, kDay + i % 7, 1, ",\"backupId\":\"b" + std::to_string(i) + "\""));
  for (std::string& line : lines) {  // the first of the two backup ids goes
    const std::size_t first = line.find("\"backupId\":\"web01_");
    line.erase(first, line.find(',', first) + 1 - first);
  }
  ASSERT_THAT(world_.load(lines), IsEmpty());

  for (const char* sort : {"", "startTime", "-startTime", "clientName", "-clientName"}) {
    std::set<std::string> seen;
    std::vector<std::string> pages;
    for (const std::int64_t offset : {0, 100, 200}) {
      const std::string page = jobs(kDay + 100, {.offset = offset, .limit = 100, .sort = sort});
      pages.push_back(pagination(page));
      for (const std::string& id : ids(page)) EXPECT_TRUE(seen.insert(id).second) << id;
    }
    EXPECT_THAT(pages, ElementsAre("0 100 231 100", "100 100 231 200", "200 100 231 -"));
    EXPECT_EQ(seen.size(), 231U);
  }
}

TEST_F(CatalogReaderTest, TheLastPageHasNoNext) {
  world_.load({backup_line(1, kDay, 1), backup_line(2, kDay + 1, 1), backup_line(3, kDay + 2, 1)});
  const auto page = [&](std::int64_t offset, std::int64_t limit) {
    return pagination(jobs(kDay + 100, {.offset = offset, .limit = limit}));
  };
  EXPECT_EQ(page(0, 2), "0 2 3 2");
  EXPECT_EQ(page(2, 2), "2 2 3 -");
  EXPECT_EQ(page(0, 3), "0 3 3 -");
  EXPECT_EQ(page(0, 1000), "0 1000 3 -");
  EXPECT_EQ(page(3, 2), "3 2 3 -");
  EXPECT_EQ(page(2147483647, 2), "2147483647 2 3 -");
}

TEST_F(CatalogReaderTest, PagesOfNothingSayThatThereIsNothing) {
  world_.load({});
  for (const std::int64_t offset : {0, 1, 2}) {
    EXPECT_EQ(pagination(jobs(kDay, {.offset = offset, .limit = 7})),
              std::to_string(offset) + " 7 0 -");
  }
}

TEST_F(CatalogReaderTest, APageMayHaveOneElement) {
  world_.load({backup_line(1, kDay, 1), backup_line(2, kDay + 1, 1)});
  EXPECT_EQ(pagination(jobs(kDay + 9, {.limit = 1})), "0 1 2 1");
  EXPECT_EQ(pagination(jobs(kDay + 9, {.offset = 1, .limit = 1})), "1 1 2 -");
}

TEST_F(CatalogReaderTest, SortsByAnyAttribute) {
  world_.load({backup_line(1, kDay + 5, 1, ",\"kbytes\":20"),
               backup_line(2, kDay + 9, 1, ",\"kbytes\":30"),
               backup_line(3, kDay, 1, ",\"kbytes\":10")});
  const auto sorted = [&](const char* sort) { return ids(jobs(kDay + 100, {.sort = sort})); };
  EXPECT_THAT(sorted(""), ElementsAre("2", "1", "3"));
  EXPECT_THAT(sorted("startTime"), ElementsAre("3", "1", "2"));
  EXPECT_THAT(sorted("-jobId"), ElementsAre("3", "2", "1"));
  EXPECT_THAT(ids(images(kDay + 100, {.sort = "-startTime"})),
              ElementsAre("web01_1769817609", "web01_1769817605", "web01_1769817600"));
  EXPECT_THAT(ids(images(kDay + 100, {.sort = "kbytes"})),
              ElementsAre("web01_1769817600", "web01_1769817605", "web01_1769817609"));
}

TEST_F(CatalogReaderTest, WhatItCannotAnswerIsNamed) {
  world_.load({backup_line(1, kDay, 1)});
  const auto complaint = [&](const PageQuery& query) {
    try {
      return jobs(kDay + 100, query);
    } catch (const BadRequest& error) {
      return error.where() + ": " + error.what();
    }
  };
  EXPECT_EQ(complaint({.sort = "colour"}), "sort: unknown attribute 'colour'");
  EXPECT_EQ(complaint({.sort = "-"}), "sort: unknown attribute ''");
  EXPECT_EQ(complaint({.sort = "startTime DESC"}), "sort: unknown attribute 'startTime DESC'");
  EXPECT_EQ(complaint({.limit = 1001}), "page[limit]: above 1000");
  EXPECT_EQ(complaint({.filter = "status eq"}), "filter, character 10: status needs a number");
  EXPECT_EQ(complaint({.filter = "numFiles eq 1"}),
            "filter, character 1: unknown attribute 'numFiles'");
  EXPECT_THAT(ids(jobs(kDay + 100)), ElementsAre("1")) << "it answers on afterwards";
}

TEST_F(CatalogReaderTest, AnomaliesComeWithTheirFeedbackFirst) {
  world_.load({});
  {
    Connection catalog = open_catalog(world_.path, Connection::Access::kWrite);
    put_report(catalog, kAnomaly, "A1", R"({"score":[1,{"x":null}]})");
    put_report(catalog, kAnomaly, "A2", "{}");
    put_feedback(catalog, "A2", "FALSE_POSITIVE");
  }
  EXPECT_EQ(
      reader().page(anomalies_, {}, at(0)),
      R"({"data":[{"type":"anomalyFeedback","id":"A2","attributes":{"feedback":"FALSE_POSITIVE"}},)"
      R"({"type":"anomaly","id":"A1","attributes":{"score":[1,{"x":null}]}},)"
      R"({"type":"anomaly","id":"A2","attributes":{}}],)"
      R"("meta":{"pagination":{"offset":0,"limit":100000,"count":3}}})");
  EXPECT_THAT(ids(reader().page(anomalies_, {.filter = "type eq 'anomaly' and id le 'A1'"}, at(0))),
              ElementsAre("A1"));
}

TEST_F(CatalogReaderTest, MoreThanAHundredFeedbacksComeAtOnce) {
  world_.load({});
  {
    Connection catalog = open_catalog(world_.path, Connection::Access::kWrite);
    catalog.execute(
        "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i<100)"
        " INSERT INTO reports(type, id, attributes) SELECT 'anomalyFeedback', i, '{}' FROM n");
  }
  EXPECT_EQ(pagination(reader().page(anomalies_, {}, at(0))), "0 100000 101 -");
}

TEST_F(CatalogReaderTest, AHugePageEndsEarly) {
  world_.load({});
  {
    Connection catalog = open_catalog(world_.path, Connection::Access::kWrite);
    catalog.execute(
        "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i<39)"
        " INSERT INTO reports(type, id, attributes)"
        " SELECT 'anomaly', i, '{\"x\":\"' || hex(zeroblob(500000)) || '\"}' FROM n");
  }
  const std::string first = reader().page(anomalies_, {}, at(0));
  EXPECT_EQ(pagination(first), "0 100000 40 34");
  {
    Connection catalog = open_catalog(world_.path, Connection::Access::kWrite);
    put_report(catalog, kAnomaly, "0", R"({"x":1})");
    sqlite3_busy_timeout(catalog.handle(), 0);
    EXPECT_EQ(corvane::test::query_one(catalog.handle(), "PRAGMA wal_checkpoint(TRUNCATE)"), "0")
        << "the reader holds on to nothing";
  }
  const std::string second = reader().page(anomalies_, {.offset = 34}, at(0));
  EXPECT_EQ(pagination(second), "34 100000 40 -");
  EXPECT_EQ(ids(first).size() + ids(second).size(), 40U);
}

TEST_F(CatalogReaderTest, AfterExactly32MebibytesThereIsRoomForOneMore) {
  world_.load({});
  const std::string around = R"({"data":[{"type":"anomaly","id":"1","attributes":""})";
  {
    Connection catalog = open_catalog(world_.path, Connection::Access::kWrite);
    const std::string filling((std::size_t{32} << 20) - around.size(), 'x');
    put_report(catalog, kAnomaly, "1", "\"" + filling + "\"");
    put_report(catalog, kAnomaly, "2", "{}");
  }
  const std::string answer = reader().page(anomalies_, {}, at(0));
  EXPECT_EQ(answer.substr(answer.rfind("\"meta\"")),
            R"("meta":{"pagination":{"offset":0,"limit":100000,"count":2}}})");
}

TEST_F(CatalogReaderTest, GathersUseTheIndexes) {
  world_.load({backup_line(1, kDay, 1)});
  Connection catalog = open_catalog(world_.path, Connection::Access::kRead);
  const auto plan = [&](const std::string& sql) {
    std::string text;
    for (const auto& row : corvane::test::query(catalog.handle(), "EXPLAIN QUERY PLAN " + sql)) {
      text += row.at(3) + "; ";
    }
    return text;
  };
  EXPECT_EQ(plan("SELECT kbytes FROM backups WHERE " + std::string(images_.visible) +
                 " AND (backup_time>=?5 AND backup_time<=?6) ORDER BY backup_time DESC,"
                 "backup_id DESC LIMIT ?3 OFFSET ?4"),
            "SEARCH backups USING INDEX backups_by_image (backup_time>? AND backup_time<?); ");
  EXPECT_EQ(
      plan("SELECT count(*) FROM backups WHERE " + std::string(jobs_.visible) +
           " AND (start_time>=?5 AND (CASE WHEN end_time<=?2 THEN end_time ELSE 0 END)<=?6"
           " AND (job_type=?7))"),
      "SEARCH backups USING COVERING INDEX backups_by_start (start_time>? AND start_time<?); ");
}

TEST_F(CatalogReaderTest, AQueryEndsWhenTheServerStops) {
  std::vector<std::string> lines;
  for (int i = 1; i <= 5000; ++i) lines.push_back(backup_line(i, kDay + i, 1));
  world_.load(lines);
  EXPECT_EQ(ids(jobs(kDay + 6000)).size(), 100U);
  stopping_ = true;
  EXPECT_THROW(jobs(kDay + 6000, {.sort = "kilobytesTransferred"}), QueryError);
}

TEST_F(CatalogReaderTest, AQueryLooksEvery10000StepsWhetherTheServerStops) {
  world_.load({});
  Connection catalog = open_catalog(world_.path, Connection::Access::kWrite);
  // Looking at so many reports takes some 15,000 steps.
  catalog.execute(
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<3400)"
      " INSERT INTO reports(type, id, attributes) SELECT 'anomaly', i, '{}' FROM n");
  stopping_ = true;
  EXPECT_THROW(reader().page(anomalies_, {.filter = "id eq 'none'"}, at(0)), QueryError);
}

TEST_F(CatalogReaderTest, SixtyFourCompiledQueriesAreKept) {
  world_.load({});
  std::vector<sqlite3_int64> used;  // memory, after each new filter
  for (unsigned i = 1; i <= 70; ++i) {
    std::string filter = "status eq 0";
    for (unsigned bit = 1; bit < 128; bit *= 2) {
      filter += (i & bit) != 0 ? " and status eq 0" : " or status eq 0";
    }
    jobs(kDay, {.filter = filter});
    used.push_back(sqlite3_memory_used());
  }
  const auto less = std::adjacent_find(used.begin(), used.end(), std::greater<>());
  EXPECT_EQ(less + 1 - used.begin(), 64) << "the next one takes the place of all";
}

TEST_F(CatalogReaderTest, ManyDifferentFiltersAreAnswered) {
  world_.load({backup_line(1, kDay, 1)});
  std::string filter = "status eq 0";
  for (int i = 0; i < 99; ++i) {
    EXPECT_THAT(ids(jobs(kDay + 10, {.filter = filter})), ElementsAre("1")) << i;
    filter += " and status eq 0";
  }
}

}  // namespace
}  // namespace corvane::host
