#include "finding/anomaly.h"

#include <gtest/gtest.h>

#include "finding/finding_json.h"

namespace corvane {
namespace {

AnomalyRow row_with(const std::string& details) {
  AnomalyRow row;
  row.id = "anomaly_1";
  row.details = details;
  row.detection_key = "key";
  row.client = "web01";
  row.detection_time = 1'700'000'060;
  return row;
}

Anomaly read(const std::string& details) { return read_anomaly(row_with(details)); }

TEST(ReadAnomaly, TakesTheFindingAndKeepsTheRow) {
  const Anomaly anomaly = read(
      R"({"severity":3,"incident":"incident_a","stream":{"client":"c","policy":"p"},"time":17})");
  EXPECT_EQ(anomaly.finding.severity, Severity::kCritical);
  EXPECT_EQ(anomaly.incident, "incident_a");
  EXPECT_EQ(anomaly.finding.stream.client, "c");
  EXPECT_TRUE(anomaly.finding.has_stream);
  EXPECT_EQ(anomaly.row.id, "anomaly_1");
  EXPECT_EQ(anomaly.row.client, "web01");
  EXPECT_EQ(anomaly.row.detection_key, "key");
}

TEST(ReadAnomaly, TakesWhatIsOfTheRightType) {
  const Anomaly anomaly = read(
      R"({"severity":"3","incident":5,"stream":{"client":7},"time":"x","last_good":[],)"
      R"("causes":{"id":"e"},"features":[{"name":"f"},{"value":1},7,{"name":"files","value":1}]})");
  EXPECT_EQ(anomaly.finding.severity, Severity::kMajor);
  EXPECT_EQ(anomaly.incident, "anomaly_1");
  EXPECT_FALSE(anomaly.finding.has_stream);
  EXPECT_EQ(anomaly.finding.stream.client, "web01");
  EXPECT_EQ(anomaly.finding.likeliest_cause(), std::nullopt);
  EXPECT_TRUE(anomaly.finding.figures[kFiles].known);
  EXPECT_FALSE(anomaly.finding.figures[kFiles].has_usual);
  EXPECT_FALSE(anomaly.finding.figures[kSize].known);
  EXPECT_EQ(read(R"({"severity":99})").finding.severity, Severity::kCritical);
  EXPECT_EQ(read(R"({"severity":-99})").finding.severity, Severity::kWarning);
}

TEST(ReadAnomaly, OfDetailsThatCannotBeReadHasWhatTheRowKnows) {
  for (const char* details : {"no json", "", "[]"}) {
    const Anomaly anomaly = read(details);
    EXPECT_EQ(anomaly.incident, "anomaly_1") << details;
    EXPECT_EQ(anomaly.finding.stream.client, "web01") << details;
    EXPECT_FALSE(anomaly.finding.has_stream) << details;
    EXPECT_EQ(anomaly.finding.severity, Severity::kMajor) << details;
  }
  EXPECT_EQ(read_anomaly(row_with(R"({"severity":1})"), nullptr).finding.severity, Severity::kMajor)
      << "the parsed details count";
}

TEST(ReadAnomaly, CutsAClientThatIsTooLong) {
  AnomalyRow row = row_with("");
  row.client = std::string(4096, 'x');
  EXPECT_EQ(read_anomaly(row).finding.stream.client, row.client);
  row.client += "yz";
  EXPECT_EQ(read_anomaly(row).finding.stream.client, std::string(4096, 'x'));
}

TEST(AnomalyTest, ItsTimeIsThatOfTheBackupOrElseOfTheDetection) {
  EXPECT_EQ(read(R"({"time":1})").time(), 1);
  EXPECT_EQ(read(R"({"time":0})").time(), 1'700'000'060);
  EXPECT_EQ(read(R"({"time":-1})").time(), 1'700'000'060);
}

TEST(AnomalyTest, ItsReviewIsWhatPeopleSaid) {
  Anomaly anomaly = read("");
  EXPECT_EQ(anomaly.review(), Review::kNotReviewed);
  anomaly.row.feedback = Feedback::kFalsePositive;
  EXPECT_EQ(anomaly.review(), Review::kFalsePositive);
  anomaly.row.feedback = Feedback::kNoFalsePositive;
  EXPECT_EQ(anomaly.review(), Review::kConfirmed);
}

TEST(AnomalyNames, ComeFromTheKeyOfTheBackupAndGiveItBack) {
  EXPECT_EQ(anomaly_id("data_1_a"), "anomaly_data_1_a");
  EXPECT_EQ(incident_name("data_1_a"), "incident_data_1_a");
  EXPECT_EQ(unique_key_of("anomaly_data_1_a"), "data_1_a");
  EXPECT_EQ(unique_key_of("incident_data_1_a"), "");
  EXPECT_EQ(unique_key_of("an anomaly_x"), "");
  EXPECT_EQ(first_record_of("incident_data_1_a"), "anomaly_data_1_a");
  EXPECT_EQ(first_record_of("anomaly_data_1_a"), "");
}

}  // namespace
}  // namespace corvane
