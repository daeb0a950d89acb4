#include "operator_tool/layout/anomaly_json.h"

#include <gtest/gtest.h>

#include "util/json.h"

namespace corvane::ctl {
namespace {

TEST(AnomalyJson, Whole) {
  Anomaly anomaly;
  anomaly.row.id = "anomaly_1";
  anomaly.row.status = AnomalyStatus::kProcessed;
  anomaly.row.detection_time = 12;
  anomaly.row.feedback = Feedback::kNoFalsePositive;
  anomaly.row.feedback_time = 13;
  anomaly.incident = "incident_2";
  anomaly.finding.stream = {"c", "p", "pt", "st", "sn", "a", "d"};
  anomaly.finding.severity = Severity::kMajor;
  anomaly.finding.summary = "sum";
  anomaly.finding.backup_id = "c_11";
  anomaly.finding.time = 11;
  anomaly.finding.causes = {cause(CauseKind::kPacked), cause(CauseKind::kSourceEmpty)};
  JsonPtr details(json_object());
  put(details.get(), "x", std::int64_t{1});
  EXPECT_EQ(json_text(to_json(anomaly, std::move(details)).get()),
            R"({"id":"anomaly_1","incident":"incident_2","client":"c","policy":"p",)"
            R"("schedule_name":"sn","severity":2,"cause":"packed","summary":"sum",)"
            R"("backup_id":"c_11","time":11,"detected":12,"state":"confirmed","judged_at":13,)"
            R"("told":true,"details":{"x":1}})");
}

TEST(AnomalyJson, OfWhatIsNotKnown) {
  EXPECT_EQ(json_text(to_json({}, nullptr).get()),
            R"({"id":"","incident":"","client":"","policy":"","schedule_name":"","severity":0,)"
            R"("cause":"","summary":"","backup_id":"","time":null,"detected":null,)"
            R"("state":"open","judged_at":null,"told":false,"details":null})");
}

}  // namespace
}  // namespace corvane::ctl
