#include "finding/finding_json.h"

#include <gtest/gtest.h>

#include <limits>

#include "util/json.h"

namespace corvane {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

Finding full() {
  Finding finding;
  finding.summary = "daily backup of web01: 12 files, usually 990 to 1,010";
  finding.severity = Severity::kCritical;
  finding.incident = "incident_data_1_a";
  finding.stream = {"web01", "nightly", "STANDARD", "FULL", "daily", "FS", "disk"};
  finding.has_stream = true;
  finding.backup_id = "web01_1700000000";
  finding.job_id = 4711;
  finding.time = 1'700'000'000;
  finding.causes = {cause(CauseKind::kMassDeletion), slow_encryption()};
  finding.slow_change = SlowChange{.runs = 3, .of_files = true, .share = 0.5, .share_before = 0.25};
  finding.figures[kFiles] = {true, true, 12, 990, 1000, 1010, -9.5};
  finding.figures[kRatio] = {true, true, 1.05, 3.84, kInfinity, kInfinity, 7};
  finding.figures[kDuration] = {.known = true, .value = 60};
  finding.by_other_stream = true;
  finding.observations = 44;
  finding.eps = 2.5;
  finding.last_good = {"web01_1699913600", 1'699'913'600};
  finding.usual_since = 1'700'086'400;
  finding.adopted = BackupReference{"web01_1700172800", 1'700'172'800};
  return finding;
}

std::string text(const Finding& finding) { return json_text(to_json(finding).get()); }

// {"a":"xxx"} with so many x.
std::string with_text(const std::string& name, std::size_t length) {
  return "{\"" + name + "\":\"" + std::string(length, 'x') + "\"}";
}

Finding reread(const std::string& json) { return from_json(parse_details(json).get()); }

TEST(FindingJson, TheWayThereAndBackChangesNothing) {
  const Finding finding = full();
  const Finding back = reread(text(finding));
  EXPECT_EQ(text(back), text(finding));
  EXPECT_EQ(back.severity, finding.severity);
  EXPECT_EQ(back.stream, finding.stream);
  EXPECT_TRUE(back.has_stream);
  EXPECT_EQ(back.causes.at(1).words, finding.causes.at(1).words);
  EXPECT_EQ(back.usual_since, finding.usual_since);
  EXPECT_EQ(back.figures[kRatio].high, kInfinity);
  EXPECT_FALSE(back.figures[kDuration].has_usual);
  EXPECT_FALSE(back.figures[kSize].known);
  EXPECT_EQ(back.slow_change->runs, 3U);
  EXPECT_EQ(back.adopted->time, finding.adopted->time);
  EXPECT_EQ(text(reread(text(Finding{}))), text(reread(text(reread(text(Finding{}))))));
}

TEST(FindingJson, IsTheDocumentedDocument) {
  Finding finding = full();
  finding.causes.resize(1);
  finding.figures[kDuration] = {};
  EXPECT_EQ(text(finding),
            R"({"schema":1,"summary":"daily backup of web01: 12 files, usually 990 to 1,010",)"
            R"("severity":3,"incident":"incident_data_1_a","stream":{"client":"web01",)"
            R"("policy":"nightly","policy_type":"STANDARD","schedule_type":"FULL",)"
            R"("schedule_name":"daily","application_type":"FS","destination":"disk"},)"
            R"("backup_id":"web01_1700000000","job_id":4711,"time":1700000000,)"
            R"("causes":[{"id":"mass_deletion","words":"A large part of the files is gone."}],)"
            R"("slow_change":{"runs":3,"measure":"files","share":0.5,"share_before":0.25},)"
            R"("features":[{"name":"files","unit":"files","value":12,"usual":1000,"usual_low":990,)"
            R"("usual_high":1010,"factor":0.012,"deviation":-9.5},{"name":"dedup_ratio",)"
            R"("unit":"ratio","value":1.05,"usual":null,"usual_low":3.84,"usual_high":null,)"
            R"("deviation":7}],"judged_by":"another stream","observations":44,"eps":2.5,)"
            R"("last_good":{"backup_id":"web01_1699913600","time":1699913600},)"
            R"("usual_since":1700086400,"adopted":{"backup_id":"web01_1700172800",)"
            R"("time":1700172800}})");
}

TEST(FindingJson, BytesThatAreNoUtf8AreReplaced) {
  Finding finding;
  finding.stream.client = "caf\xE9";
  EXPECT_EQ(reread(text(finding)).stream.client, "caf\xEF\xBF\xBD");
}

TEST(FindingJson, TakesWhatIsThereAndLeavesTheRest) {
  const Finding finding = reread(
      R"({"severity":99,"summary":7,"stream":{"policy":"p"},"causes":[{"id":"new one"},3],)"
      R"("features":[{"name":"files","value":"x"},{"name":"unheard","value":1},)"
      R"({"name":"image_size","value":5,"usual":1}],"observations":-4,"slow_change":{"runs":1}})");
  EXPECT_EQ(finding.severity, Severity::kCritical);
  EXPECT_EQ(finding.summary, "");
  EXPECT_FALSE(finding.has_stream);
  ASSERT_EQ(finding.causes.size(), 1U);
  EXPECT_EQ(finding.causes[0].kind, CauseKind::kUnclear);
  EXPECT_FALSE(finding.figures[kFiles].known);
  EXPECT_TRUE(finding.figures[kSize].known);
  EXPECT_FALSE(finding.figures[kSize].has_usual);
  EXPECT_EQ(finding.observations, 0U);
  EXPECT_FALSE(finding.slow_change);
  EXPECT_EQ(from_json(nullptr).severity, Severity::kMajor);
}

TEST(FindingJson, RowsOfFormerVersionsHaveANumberForAnInfiniteRatio) {
  const Finding finding =
      reread(R"({"features":[{"name":"dedup_ratio","value":1,"usual":1000000,"usual_low":3.84,)"
             R"("usual_high":1000000,"deviation":7},{"name":"files","value":1,"usual":1000000,)"
             R"("usual_low":3,"usual_high":1000000,"deviation":7}]})");
  EXPECT_EQ(finding.figures[kRatio].usual, kInfinity);
  EXPECT_EQ(finding.figures[kRatio].high, kInfinity);
  EXPECT_EQ(finding.figures[kFiles].high, 1e6);
}

TEST(FindingJson, WhatIsTooLongOrNoObjectIsNotParsed) {
  EXPECT_EQ(parse_details("[1]"), nullptr);
  EXPECT_EQ(parse_details("no JSON"), nullptr);
  const std::string rest = R"({"a":""})";
  const std::size_t most = std::size_t{256} << 10;
  EXPECT_NE(parse_details(with_text("a", most - rest.size())), nullptr);
  EXPECT_EQ(parse_details(with_text("a", most - rest.size() + 1)), nullptr);
}

TEST(FindingJson, TextsThatAreTooLongAreLeftOut) {
  EXPECT_EQ(reread(with_text("summary", 4096)).summary.size(), 4096U);
  EXPECT_EQ(reread(with_text("summary", 4097)).summary, "");
  EXPECT_EQ(reread(with_text("incident", 1024)).incident.size(), 1024U);
  EXPECT_EQ(reread(with_text("incident", 1025)).incident, "");
}

TEST(FindingJson, ListsThatAreTooLongAreCut) {
  const auto listed = [](const std::string& name, const std::string& entry, int others,
                         const std::string& last) {
    std::string json = "{\"" + name + "\":[";
    for (int i = 0; i < others; ++i) json += entry + ",";
    return reread(json + last + "]}");
  };
  const std::string cause = R"({"id":"packed"})";
  EXPECT_EQ(listed("causes", cause, 31, cause).causes.size(), 32U);
  EXPECT_EQ(listed("causes", cause, 32, cause).causes.size(), 32U);
  const std::string files = R"({"name":"files","value":1})";
  EXPECT_TRUE(listed("features", "7", 31, files).figures[kFiles].known);
  EXPECT_FALSE(listed("features", "7", 32, files).figures[kFiles].known);
}

TEST(FindingJson, AUsualNeedsAllOfItsNumbers) {
  const auto has_usual = [](const std::string& members) {
    const Finding finding = reread(R"({"features":[{"name":"files","value":5)" + members + "}]}");
    EXPECT_TRUE(finding.figures[kFiles].known);
    EXPECT_EQ(finding.figures[kFiles].value, 5);
    return finding.figures[kFiles].has_usual;
  };
  EXPECT_TRUE(has_usual(R"(,"usual":1,"usual_low":2,"usual_high":3,"deviation":4)"));
  EXPECT_FALSE(has_usual(R"(,"usual_low":2,"usual_high":3,"deviation":4)"));
  EXPECT_FALSE(has_usual(R"(,"usual":1,"usual_high":3,"deviation":4)"));
  EXPECT_FALSE(has_usual(R"(,"usual":1,"usual_low":2,"deviation":4)"));
  EXPECT_FALSE(has_usual(R"(,"usual":1,"usual_low":2,"usual_high":3)"));
  EXPECT_FALSE(has_usual(R"(,"usual":"1","usual_low":2,"usual_high":3,"deviation":4)"));
}

TEST(FindingJson, AFactorNeedsAUsualAboveZero) {
  Finding finding;
  finding.figures[kFiles] = {true, true, 6, 0, 0.5, 0, 1};
  EXPECT_NE(text(finding).find(R"("factor":12,)"), std::string::npos);
  finding.figures[kFiles].usual = 0;
  EXPECT_EQ(text(finding).find("factor"), std::string::npos);
}

TEST(FindingJson, ASlowChangeThatCannotBeIsLeftOut) {
  const auto change = [](const std::string& measure, int runs, const std::string& share,
                         const std::string& before) {
    return reread(R"({"slow_change":{"runs":)" + std::to_string(runs) + R"(,"measure":")" +
                  measure + R"(","share":)" + share + R"(,"share_before":)" + before + "}}")
        .slow_change;
  };
  ASSERT_TRUE(change("files", 2, "0.25", "0.125"));
  EXPECT_TRUE(change("files", 2, "0.25", "0.125")->of_files);
  EXPECT_EQ(change("files", 2, "0.25", "0.125")->share, 0.25);
  EXPECT_EQ(change("files", 2, "0.25", "0.125")->share_before, 0.125);
  ASSERT_TRUE(change("kb_transferred", 1000, "1", "0"));
  EXPECT_FALSE(change("kb_transferred", 1000, "1", "0")->of_files);
  EXPECT_EQ(change("kb_transferred", 1000, "1", "0")->runs, 1000U);
  EXPECT_FALSE(change("moons", 2, "0.25", "0.125"));
  EXPECT_FALSE(change("files", 1, "0.25", "0.125"));
  EXPECT_FALSE(change("files", 1001, "0.25", "0.125"));
  EXPECT_FALSE(change("files", 2, "0.25", "0.25")) << "no more than before";
  EXPECT_FALSE(change("files", 2, "0.25", "-0.001"));
  EXPECT_FALSE(change("files", 2, "1.001", "0.125"));
  EXPECT_FALSE(change("files", 2, "\"0.25\"", "0.125"));
  EXPECT_FALSE(change("files", 2, "0.25", "null"));
}

TEST(FindingJson, WhatIsNotKnownIsLeftOut) {
  Finding finding;
  finding.usual_since = 1;
  EXPECT_NE(text(finding).find(R"("usual_since":1)"), std::string::npos);
  finding.usual_since = 0;
  EXPECT_EQ(text(finding),
            R"({"schema":1,"summary":"","severity":0,"incident":"","stream":{"client":"",)"
            R"("policy":"","policy_type":"","schedule_type":"","schedule_name":"",)"
            R"("application_type":"","destination":""},"backup_id":"","job_id":0,"time":0,)"
            R"("causes":[],"features":[],"judged_by":"own history","observations":0,"eps":0,)"
            R"("last_good":null})");
}

TEST(FindingJson, SaysWhenAChangeWasAdopted) {
  const std::string details = with_adoption(R"({"severity":2,"own":"kept"})", {"b", 17});
  EXPECT_EQ(details, R"({"severity":2,"own":"kept","adopted":{"backup_id":"b","time":17}})");
  EXPECT_EQ(reread(details).adopted->time, 17);
  EXPECT_EQ(with_adoption("not JSON", {"b", 17}), "not JSON");
}

}  // namespace
}  // namespace corvane
