#include "operator_tool/layout/explain_command.h"

#include "operator_tool/terminal/words.h"
#include "tests/unit/operator_tool/layout/commands_world.h"

namespace corvane::ctl {
namespace {

detect::Explanation known_explanation() {
  detect::Explanation judged;
  judged.outcome = detect::Outcome::kAnomalous;
  judged.verdict = "anomalous";
  judged.stream = "learning 3 of 30";
  judged.noise_share = 0.125;
  Finding& finding = judged.finding;
  finding.backup_id = "c_1";
  finding.time = kNow;
  finding.stream = {"c", "p", "pt", "st", "sn", "a", "d"};
  finding.observations = 41;
  finding.summary = "Unusual.";
  finding.severity = Severity::kMajor;
  finding.causes = {
      {CauseKind::kPacked, "One."}, {CauseKind::kUnclear, "Two."}, {CauseKind::kUnclear, "Three."}};
  finding.last_good = {"c_0", kNow - kDay};
  FigureView& files = finding.figures[kFiles];
  files.known = true;
  files.value = 5;
  return judged;
}

TEST(ExplanationText, Whole) {
  const detect::Explanation judged = known_explanation();
  EXPECT_EQ(text_of(judged, {}, true),
            "Backup        c_1 from 2023-11-14 22:13 UTC\n"
            "Stream        c, policy p, schedule sn (st)\n"
            "Verdict       anomalous\n"
            "Stream state  learning 3 of 30\n"
            "Baseline      41 backups of its own stream, 13% noise\n"
            "Summary       Unusual.\n"
            "Severity      major\n"
            "Cause         One.\n"
            "Other cause   Two.\n"
            "Other cause   Three.\n"
            "Last good     c_0 from 2023-11-13 22:13 UTC\n\n" +
                figures_table({}, judged.finding.figures));
}

TEST(ExplanationText, OfWhatIsNotAnomalousThereIsNoCause) {
  detect::Explanation judged = known_explanation();
  judged.outcome = detect::Outcome::kNormal;
  judged.verdict = "normal";
  judged.noise_share = 1;
  judged.finding.by_other_stream = true;
  judged.finding.observations = 1;
  judged.finding.slow_change.emplace();
  judged.finding.last_good = {};
  EXPECT_EQ(text_of(judged, {}, true),
            "Backup        c_1 from 2023-11-14 22:13 UTC\n"
            "Stream        c, policy p, schedule sn (st)\n"
            "Verdict       normal\n"
            "Stream state  learning 3 of 30\n"
            "Baseline      1 backup of another stream, 100% noise\n"
            "Slow change   several backups in a row are anomalous together\n\n" +
                figures_table({}, judged.finding.figures));
}

TEST(ExplanationText, LocalTime) {
  setenv("TZ", "XXX-9", 1);
  tzset();
  const std::string text = text_of(known_explanation(), {}, false);
  unsetenv("TZ");
  tzset();
  EXPECT_NE(text.find("c_1 from 2023-11-15 07:13 XXX\n"), std::string::npos) << text;
  EXPECT_NE(text.find("c_0 from 2023-11-14 07:13 XXX\n"), std::string::npos) << text;
}

class ExplainCommand : public Commands {
 protected:
  detect::Explanation explanation(const std::string& key) {
    Database opened(database());
    return *detect::explain(opened.connection(), {}, key);
  }
};

TEST_F(ExplainCommand, OfAnAnomalousBackup) {
  history({}, 60);
  insert("DATA_TO_PROCESS", {.mark = 0, .files = 20, .size_kb = 900});
  const std::string key = key_of({});
  const Finding finding = explanation(key).finding;
  std::string causes;
  for (const Cause& cause : finding.causes) {
    causes += line({}, causes.empty() ? "Cause" : "Other cause", cause.words);
  }
  ASSERT_FALSE(causes.empty());
  const Said said = say({"explain", key});
  EXPECT_EQ(said.status, 0) << said.error;
  EXPECT_EQ(said.out,
            "Backup        web01_1700000000 from 2023-11-14 22:13 UTC\n"
            "Stream        web01, policy nightly, schedule daily (FULL)\n"
            "Verdict       anomalous\n"
            "Stream state  judged\n"
            "Baseline      60 backups of its own stream, 0% noise\n"
            "Summary       " +
                finding.summary + "\nSeverity      critical\n" + causes +
                "Last good     web01_1699913600 from 2023-11-13 22:13 UTC\n\n" +
                figures_table({}, finding.figures));
}

TEST_F(ExplainCommand, OfANormalBackup) {
  history({}, 60);
  const std::string key = key_of({.time = kNow - kDay});
  const Said said = say({"explain", key});
  EXPECT_EQ(said.out,
            "Backup        web01_1699913600 from 2023-11-13 22:13 UTC\n"
            "Stream        web01, policy nightly, schedule daily (FULL)\n"
            "Verdict       normal\n"
            "Stream state  judged\n"
            "Baseline      59 backups of its own stream, 0% noise\n"
            "Last good     web01_1699827200 from 2023-11-12 22:13 UTC\n\n" +
                figures_table({}, explanation(key).finding.figures));
}

TEST_F(ExplainCommand, OneBackupIsABaselineToo) {
  history({}, 2);
  const Said said = say({"explain", key_of({.time = kNow - kDay})});
  EXPECT_TRUE(says(said, "Verdict       learning 1 of 30\n")) << said.out;
  EXPECT_TRUE(says(said, "Stream state  learning 1 of 30\n"));
  EXPECT_TRUE(says(said, "Baseline      1 backup of its own stream, 0% noise\n"));
}

// As the detection's own log has it.
TEST_F(ExplainCommand, RoundsTheShareOfNoise) {
  history({}, 53);
  for (const int days : {70, 80})
    insert("HIST_DATA", {.time = kNow - days * kDay, .files = 9000000});
  insert("DATA_TO_PROCESS", {.mark = 0});
  const JsonPtr root = json({"explain", key_of({})});
  const double noise = 100 * json_real_value(member(root.get(), {"judgement", "history_noise"}));
  ASSERT_LT(noise, 2);  // and what cuts it off would say 1
  EXPECT_TRUE(
      says(say({"explain", key_of({})}), "Baseline      55 backups of its own stream, 2% noise\n"));
}

TEST_F(ExplainCommand, AsJson) {
  history({}, 60);
  insert("DATA_TO_PROCESS", {.mark = 0, .files = 20, .size_kb = 900});
  const std::string key = key_of({});
  const JsonPtr root = json({"explain", key});
  EXPECT_EQ(compact(json_object_get(root.get(), "unique_key")), quoted_json(key));
  EXPECT_TRUE(json_equal(json_object_get(root.get(), "judgement"),
                         detect::to_json(explanation(key)).get()));
}

TEST_F(ExplainCommand, GoesByTheConfiguration) {
  configure("[ANOMALY_MODEL_SETTINGS]\nMIN_OBSERVATIONS_FOR_TRAINING=100\n");
  history({}, 60);
  EXPECT_TRUE(says(say({"explain", key_of({.time = kNow - kDay})}), "learning 59 of 100"));
}

TEST_F(ExplainCommand, OfNoBackup) {
  const Said said = say({"explain", "none"});
  EXPECT_EQ(said.status, 1);
  EXPECT_EQ(said.out, "");
  EXPECT_EQ(said.error,
            "cvanomalyctl: No backup has the UNIQUE_KEY none. It is an anomaly's id without "
            "\"anomaly_\".\n");
}

TEST_F(ExplainCommand, Colours) {
  history({}, 60);
  insert("DATA_TO_PROCESS", {.mark = 0, .files = 20, .size_kb = 900});
  Options options;
  options.id = key_of({});
  const std::string bad = in_colour(run_explain, options);
  EXPECT_NE(bad.find("\x1B[31manomalous\x1B[0m\n"), std::string::npos) << bad;
  EXPECT_NE(bad.find("\x1B[31mcritical\x1B[0m\n"), std::string::npos) << bad;
  options.id = key_of({.time = kNow - kDay});
  const std::string normal = in_colour(run_explain, options);
  EXPECT_NE(normal.find("       normal\n"), std::string::npos) << normal;
}

}  // namespace
}  // namespace corvane::ctl
