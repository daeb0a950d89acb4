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

Finding reread(const std::string& json) { return from_json(parse_details(json).get()); }

TEST(FindingJson, TheWayThereAndBackChangesNothing) {
  const Finding finding = full();
  const Finding back = reread(text(finding));
  EXPECT_EQ(text(back), text(finding));
  EXPECT_EQ(back.severity, finding.severity);
  EXPECT_EQ(back.stream, finding.stream);
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
  EXPECT_EQ(parse_details("{\"summary\":\"" + std::string(300'000, 'x') + "\"}"), nullptr);
  EXPECT_EQ(reread("{\"summary\":\"" + std::string(5'000, 'x') + "\"}").summary, "");
  EXPECT_EQ(reread("{\"incident\":\"" + std::string(2'000, 'x') + "\"}").incident, "");
}

TEST(FindingJson, SaysWhenAChangeWasAdopted) {
  const std::string details = with_adoption(R"({"severity":2,"own":"kept"})", {"b", 17});
  EXPECT_EQ(details, R"({"severity":2,"own":"kept","adopted":{"backup_id":"b","time":17}})");
  EXPECT_EQ(reread(details).adopted->time, 17);
  EXPECT_EQ(with_adoption("not JSON", {"b", 17}), "not JSON");
}

}  // namespace
}  // namespace corvane
