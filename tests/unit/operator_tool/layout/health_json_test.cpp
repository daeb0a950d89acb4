#include "operator_tool/layout/health_json.h"

#include <gtest/gtest.h>

#include "tests/unit/operator_tool/layout/known_values.h"
#include "util/json.h"

namespace corvane::ctl {
namespace {

std::string json_of(const Health& health) {
  const JsonPtr root(json_object());
  put_health(root.get(), health);
  return json_text(root.get());
}

TEST(HealthJson, Whole) {
  EXPECT_EQ(
      json_of(known_health()),
      R"({"time":1700000000,"processes":[)"
      R"({"name":"cvanomalymgmt","running":true,"wanted":true,"process":4711,"since":1699982000,)"
      R"("log_bytes":501},)"
      R"({"name":"cvanomalydetect","running":true,"wanted":false,"process":4712,)"
      R"("since":1699978400,"log_bytes":502},)"
      R"({"name":"cvanomalyalert","running":false,"wanted":true,"process":null,"since":null,)"
      R"("log_bytes":503}],)"
      R"("gather":{"last":1699999400,"next":1700000420,"interval_minutes":17,"queued_jobs":12,)"
      R"("log":{"from":1699992800,"gathers":13,"failed":4,"last_failed":1699998200,)"
      R"("last_end":1699999410,"last_seconds":9}},)"
      R"("alerts":{"known":true,"waiting":42,"oldest":1699998080,"given_up":46,"channels":[)"
      R"({"name":"mail","waiting":11,"given_up":13,"taken":14,"failures":15,)"
      R"("failing_since":1699999984,"last_success":1699999983,"last_error":"mail is down"},)"
      R"({"name":"web","waiting":31,"given_up":33,"taken":34,"failures":35,)"
      R"("failing_since":1699999964,"last_success":1699999963,"last_error":"web is down"}]},)"
      R"("healing":{"last_look":1699999880,"failed_in_a_row":2,"first_failed":1699997000,)"
      R"("reason":"HTTP 503","last_complete":1699996400,"open_since":1699999850,)"
      R"("holes":[{"from":1699991000,"to":1699991999},{"from":1699993000,"to":1699993499}],)"
      R"("holes_seconds":1500,"missing_backups":1,"given_up_backups":3,"lost":[{"from":1699910000,"to":1699920000},)"
      R"({"from":1,"to":2},{"from":5,"to":6},{"from":8,"to":9}],"unjudged_since":1699999923,"unaudited_since":1699999911,)"
      R"("acts":[{"time":1699999800,"text":"3 backups were gathered again"}]},)"
      R"("database_bytes":943718400,"disk_free_bytes":751619276800,"disk_total_bytes":2147483648000})");
}

TEST(HealthJson, WhatIsUnknownIsNull) {
  Health health;
  health.alerts.trouble = "damaged";
  health.ledger.trouble = "unreadable";
  EXPECT_EQ(json_of(health),
            R"({"time":0,"processes":[],"gather":{"last":null,"next":null,"interval_minutes":15,)"
            R"("queued_jobs":0,"log":{"from":null,"gathers":0,"failed":0,"last_failed":null,)"
            R"("last_end":null,"last_seconds":null}},"alerts":{"known":false,"waiting":0,)"
            R"("oldest":null,"given_up":0,"channels":[],"trouble":"damaged"},)"
            R"("healing":{"last_look":null,"failed_in_a_row":0,"first_failed":null,"reason":"",)"
            R"("last_complete":null,"open_since":null,"holes":[],"holes_seconds":0,)"
            R"("missing_backups":0,"given_up_backups":0,"lost":[],"unjudged_since":null,)"
            R"("unaudited_since":null,"acts":[],)"
            R"("trouble":"unreadable"},"database_bytes":0,)"
            R"("disk_free_bytes":0,"disk_total_bytes":0})");
}

TEST(HealthJson, Problems) {
  const JsonPtr root(json_object());
  put_problems(root.get(), {{Level::kCritical, "a", "b"}, {Level::kWarning, "c", "d"}});
  EXPECT_EQ(json_text(root.get()),
            R"({"problem_list":[{"level":"critical","name":"a","words":"b"},)"
            R"({"level":"warning","name":"c","words":"d"}]})");
}

TEST(HealthJson, AGatherMayTakeNoTime) {
  Health health;
  health.gather.log.last_seconds = 0;
  EXPECT_NE(json_of(health).find(R"("last_seconds":0})"), std::string::npos);
}

TEST(SurveyJson, Whole) {
  const JsonPtr root(json_object());
  put_survey(root.get(), known_picture().streams);
  EXPECT_EQ(json_text(root.get()),
            R"({"streams":{"total":6,"learning":1,"judged":2,"dormant":3},"records":{)"
            R"("history":1234,"to_process":56,"waiting":7,"oldest_waiting":1699999700}})");
}

}  // namespace
}  // namespace corvane::ctl
