#include "companions/detect/details.h"

#include <gtest/gtest.h>
#include <jansson.h>

#include "companions/detect/model.h"
#include "platform/c_handles.h"
#include "tests/unit/detect/detect_world.h"

namespace corvane::detect {
namespace {

JsonPtr parsed(const std::string& text) { return JsonPtr(json_loads(text.c_str(), 0, nullptr)); }

TEST(Details, HoldWhatTheSchemaSays) {
  Model model{Settings{}};
  for (int day = 0; day < 40; ++day) model.learn(daily(day), -1);
  Backup backup = daily(40, 300, 3e5);
  backup.stream.client = "caf\xE9";  // no UTF-8
  Backup judged = daily(40, 300, 3e5);
  const JsonPtr root =
      parsed(details_of(backup, model.judge(judged), "data_7_x", {"client_1", 1699999999}));
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(json_integer_value(json_object_get(root.get(), "schema")), 1);
  EXPECT_EQ(json_integer_value(json_object_get(root.get(), "severity")), 3);
  EXPECT_STREQ(json_string_value(json_object_get(root.get(), "incident")), "incident_data_7_x");
  EXPECT_EQ(json_integer_value(json_object_get(root.get(), "job_id")), backup.job_id);
  EXPECT_EQ(json_integer_value(json_object_get(root.get(), "time")), backup.time);
  const json_t* stream = json_object_get(root.get(), "stream");
  EXPECT_STREQ(json_string_value(json_object_get(stream, "client")), "caf\xEF\xBF\xBD");
  const json_t* cause = json_array_get(json_object_get(root.get(), "causes"), 0);
  EXPECT_STREQ(json_string_value(json_object_get(cause, "id")), "mass_deletion");
  const json_t* files = json_array_get(json_object_get(root.get(), "features"), 0);
  EXPECT_STREQ(json_string_value(json_object_get(files, "name")), "files");
  EXPECT_EQ(json_number_value(json_object_get(files, "value")), judged.figures.files);
  EXPECT_NEAR(json_number_value(json_object_get(files, "usual")), 1000, 20);
  EXPECT_LT(json_number_value(json_object_get(files, "usual_low")), 1000);
  EXPECT_GT(json_number_value(json_object_get(files, "usual_high")), 1000);
  EXPECT_NEAR(json_number_value(json_object_get(files, "factor")), 0.3, 0.02);
  const json_t* good = json_object_get(root.get(), "last_good");
  EXPECT_EQ(json_integer_value(json_object_get(good, "time")), 1699999999);
}

TEST(Details, SumUpInWholeNumbersWithTheirThousandsApart) {
  Verdict verdict;
  verdict.features[kFiles] = {
      .known = true, .used = true, .value = 1234567.4, .low = 0, .high = 2048.13, .deviation = 9};
  verdict.causes = {{"unclear", "Nothing fits."}};
  EXPECT_EQ(summary_of(daily(3), verdict),
            "daily backup of client: 1,234,567 files, usually 0 to 2,048. Nothing fits.");
  verdict.features[kRatio] = {
      .known = true, .used = true, .value = 1.055, .low = 12.3, .high = 100, .deviation = -20};
  EXPECT_EQ(
      summary_of(daily(3), verdict),
      "daily backup of client: 1.05 deduplication ratio, usually 12.30 to 100.00. Nothing fits.");
}

// Every figure of the third run is a normal one; the three in a row are the reason.
TEST(Details, OfASlowChangeNameTheRunsThatItTook) {
  Model model{Settings{}};
  for (int day = 0; day < 40; ++day) {
    model.learn(daily(day, 1000, 1e6, day % 4 == 0 ? 6e4 : 1e4), -1);
  }
  for (int day = 40; day < 42; ++day) {
    ASSERT_EQ(model.judge(daily(day, 1000, 1e6, 6e4)).outcome, Outcome::kNormal);
    model.learn(daily(day, 1000, 1e6, 6e4), -1);
  }
  const Backup third = daily(42, 1000, 1e6, 6e4);
  const Verdict verdict = model.judge(third);
  ASSERT_EQ(verdict.outcome, Outcome::kAnomalous);
  const std::string summary = summary_of(third, verdict);
  EXPECT_EQ(summary.substr(0, summary.find(". Files may")),
            "daily backup of client: each of 3 runs in a row stored 5.8 % of the data anew or "
            "more, the most that so many accepted runs in a row did before was 1.2 %");
  const JsonPtr root = parsed(details_of(third, verdict, "x", {}));
  const json_t* change = json_object_get(root.get(), "slow_change");
  EXPECT_EQ(json_integer_value(json_object_get(change, "runs")), 3);
  EXPECT_STREQ(json_string_value(json_object_get(change, "measure")), "kb_transferred");
  EXPECT_NEAR(json_number_value(json_object_get(change, "share")), 0.058, 0.001);
  EXPECT_NEAR(json_number_value(json_object_get(change, "share_before")), 0.012, 0.001);

  const Backup sudden = daily(42, 1000, 1e6, 9e5);
  const JsonPtr other = parsed(details_of(sudden, model.judge(sudden), "x", {}));
  EXPECT_EQ(json_object_get(other.get(), "slow_change"), nullptr);
}

TEST(Details, SayWhenAChangeWasAdopted) {
  const JsonPtr root = parsed(with_adoption(R"({"severity":2})", daily(3)));
  const json_t* adopted = json_object_get(root.get(), "adopted");
  EXPECT_EQ(json_integer_value(json_object_get(adopted, "time")), daily(3).time);
  EXPECT_EQ(json_integer_value(json_object_get(root.get(), "severity")), 2);
  EXPECT_EQ(with_adoption("not JSON", daily(3)), "not JSON");
}

TEST(Details, AnIdGivesItsKeyBack) {
  EXPECT_EQ(unique_key_of(anomaly_id("data_1_a")), "data_1_a");
  EXPECT_EQ(unique_key_of("something else"), "");
}

}  // namespace
}  // namespace corvane::detect
