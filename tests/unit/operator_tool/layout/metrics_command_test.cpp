#include <sys/stat.h>

#include "operator_tool/layout/metrics.h"
#include "tests/unit/operator_tool/layout/commands_world.h"

namespace corvane::ctl {
namespace {

class MetricsCommand : public Commands {
 protected:
  std::string target() const { return directory_("cvanomaly.prom"); }
};

TEST_F(MetricsCommand, PrintsWhatWasMeasured) {
  run_everything();
  gathered(kNow - 600);
  history({}, 40);
  const Said said = say({"metrics"});
  EXPECT_EQ(said.status, 0) << said.error;
  Database opened(database());
  EXPECT_EQ(said.out, prometheus_text(metrics_of(measure(with_paths(), opened))));
  EXPECT_TRUE(says(said, "\ncvanomaly_records{table=\"HIST_DATA\"} 40\n"));
}

TEST_F(MetricsCommand, TellWhatIsDisabledFromWhatIsDown) {
  configure(
      "[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_DETECTION_SERVICE=0\nDISABLE_ALERT_SERVICE=1\n");
  const Said said = say({"metrics"});
  for (const char* line : {"cvanomaly_process_up{process=\"cvanomalydetect\"} 0\n",
                           "cvanomaly_process_wanted{process=\"cvanomalydetect\"} 1\n",
                           "cvanomaly_process_up{process=\"cvanomalyalert\"} 0\n",
                           "cvanomaly_process_wanted{process=\"cvanomalyalert\"} 0\n"}) {
    EXPECT_TRUE(says(said, line)) << line << "\n" << said.out;
  }
}

TEST_F(MetricsCommand, AsJson) {
  gathered(kNow - 600);
  const JsonPtr root = json({"metrics"});
  const json_t* metrics = json_object_get(root.get(), "metrics");
  EXPECT_EQ(compact(json_array_get(metrics, 1)),
            R"({"name":"cvanomaly_gather_lag_seconds","labels":{},"value":600.0})");
  EXPECT_EQ(compact(json_array_get(metrics, 3)),
            R"({"name":"cvanomaly_records","labels":{"table":"HIST_DATA"},"value":0.0})");
  EXPECT_EQ(compact(json_array_get(metrics, 11)),
            R"({"name":"cvanomaly_anomalies","labels":{"severity":"1","state":"open"},)"
            R"("value":0.0})");
}

TEST_F(MetricsCommand, TheFileIsReplacedWhole) {
  test::write_file(target(), "former");
  EXPECT_EQ(say({"metrics", "--output", target()}).out, "");
  EXPECT_EQ(test::read_file(target()), say({"metrics"}).out);
  struct stat file {};
  stat(target().c_str(), &file);
  EXPECT_EQ(file.st_mode & 0777U, 0644U);
}

// Figures of former times would look as if all were well.
TEST_F(MetricsCommand, WithoutTheDatabaseTheyTellWhatIsKnown) {
  sql("DROP TABLE HIST_DATA");
  const Said said = say({"metrics"});
  EXPECT_EQ(said.status, 5);
  EXPECT_TRUE(says(said, "\ncvanomaly_health_problems{level=\"critical\"} ")) << said.out;
  EXPECT_FALSE(says(said, "\ncvanomaly_health_problems{level=\"critical\"} 0"));
  EXPECT_TRUE(says(said, "\ncvanomaly_process_up{process=\"cvanomalymgmt\"} 0\n"));
  EXPECT_FALSE(says(said, "cvanomaly_records"));
  EXPECT_EQ(say({"streams"}).error, said.error);
  test::write_file(target(), "former");
  const Said to_file = say({"metrics", "--output", target()});
  EXPECT_EQ(to_file.status, 5);
  EXPECT_EQ(to_file.out, "");
  EXPECT_EQ(test::read_file(target()), said.out);
}

TEST_F(MetricsCommand, AFileThatCannotBeWrittenIsTrouble) {
  const Said said = say({"metrics", "--output", directory_("none/x.prom")});
  EXPECT_EQ(said.status, 8);
  EXPECT_EQ(said.error, "cvanomalyctl: Cannot write " + directory_("none/x.prom") +
                            ": No such file or directory.\n");
}

class MetricsChanging : public Changing {};

TEST_F(MetricsChanging, TheFileShowsNoMixedState) {
  const std::string target = directory_("cvanomaly.prom");
  test::write_file(target, "former");
  EXPECT_EQ(say({"metrics", "--output", target}).status, 4);
  const std::string text = test::read_file(target);
  EXPECT_EQ(text.find("cvanomaly_records"), std::string::npos);
  EXPECT_NE(text.find("cvanomaly_health_problems{level=\"critical\"} "), std::string::npos);
}

}  // namespace
}  // namespace corvane::ctl
