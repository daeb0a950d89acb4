#include "operator_tool/layout/metrics.h"

#include <sys/stat.h>

#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::ctl {
namespace {

class Metrics : public OperatorWorld {
 protected:
  bool says(const std::string& text, const std::string& line) {
    return text.find(line + "\n") != std::string::npos;
  }
};

TEST_F(Metrics, OfAFreshInstallationLeaveOutWhatIsNotKnown) {
  const Said said = say({"metrics"});
  EXPECT_EQ(said.status, 0) << said.error;
  EXPECT_TRUE(says(said.out, "cvanomaly_rows_waiting 0"));
  EXPECT_TRUE(says(said.out, "cvanomaly_process_up{process=\"cvanomalymgmt\"} 0"));
  for (const char* name :
       {"last_gather", "gather_lag", "gather_duration", "false_positive_ratio", "dead"}) {
    EXPECT_EQ(said.out.find(name), std::string::npos) << name;
  }
}

TEST_F(Metrics, TellWhatThereIs) {
  run_everything();
  gathered(kNow - 600);
  history({}, 40);
  insert("DATA_TO_PROCESS", {.time = kNow - 50, .mark = 0});
  sql("INSERT INTO QUEUED_TO_CAPTURE_DATA VALUES (5, 6)");
  const TestBackup a{.client = "a"};
  const TestBackup b{.client = "b"};
  const TestBackup c{.client = "c"};
  anomaly(a, 3, a);
  anomaly(b, 2, b);
  anomaly(c, 2, c);
  feedback(b, 1);
  feedback(c, 0);
  test::write_file(directory_("cvanomalymgmt"),
                   "2023-11-14T20:00:00.000Z 1 2 cvanomalymgmt: Capturing data between 1 & 2 \n"
                   "2023-11-14T20:00:01.000Z 1 16 x: no\n"
                   "2023-11-14T20:00:09.000Z 1 2 cvanomalymgmt: Total time taken for live gather "
                   "9.\n");
  {
    alert::StateDatabase state(directory_("CV_Anomaly_Alerts.db"));
    test::query(state.handle(),
                "INSERT INTO delivery VALUES (1, 'mail', 1, 1, 2, 0, 1, 0, 0, 1, 1, "
                "'x', 0), (2, 'mail', 1, 1, 2, 3, 1, 0, 0, 1, 1, 'x', 0)");
  }
  const std::string out = say({"metrics"}).out;
  for (const char* line :
       {"# TYPE cvanomaly_gather_lag_seconds gauge", "cvanomaly_gather_lag_seconds 600",
        "cvanomaly_last_gather_timestamp_seconds 1699999400", "cvanomaly_gather_duration_seconds 9",
        "cvanomaly_gather_failures 1", "cvanomaly_queued_jobs 1", "cvanomaly_rows_waiting 1",
        "cvanomaly_records{table=\"HIST_DATA\"} 40",
        "cvanomaly_records{table=\"ANOMALY_DATA_FEEDBACK\"} 2",
        "cvanomaly_streams{state=\"judged\"} 1", "cvanomaly_streams{state=\"learning\"} 0",
        "cvanomaly_anomalies{severity=\"3\",state=\"open\"} 1",
        "cvanomaly_anomalies{severity=\"2\",state=\"false_positive\"} 1",
        "cvanomaly_anomalies{severity=\"1\",state=\"open\"} 0",
        "cvanomaly_false_positive_ratio 0.5", "cvanomaly_alerts_waiting{channel=\"mail\"} 1",
        "cvanomaly_alerts_dead 1", "cvanomaly_process_up{process=\"cvanomalyalert\"} 1"}) {
    EXPECT_TRUE(says(out, line)) << line << "\n" << out;
  }
}

TEST_F(Metrics, TellWhatIsSwitchedOffFromWhatIsDown) {
  configure(
      "[ANOMALY_DETECTION_FUNCTIONALITY]\nDISABLE_DETECTION_SERVICE=0\nDISABLE_ALERT_SERVICE=1\n");
  const std::string out = say({"metrics"}).out;
  for (const char* line : {"cvanomaly_process_up{process=\"cvanomalydetect\"} 0",
                           "cvanomaly_process_wanted{process=\"cvanomalydetect\"} 1",
                           "cvanomaly_process_up{process=\"cvanomalyalert\"} 0",
                           "cvanomaly_process_wanted{process=\"cvanomalyalert\"} 0"}) {
    EXPECT_TRUE(says(out, line)) << line << "\n" << out;
  }
}

TEST_F(Metrics, TheFileIsReplacedWholeOrLeftAsItWas) {
  const std::string target = directory_("cvanomaly.prom");
  test::write_file(target, "former");
  EXPECT_EQ(say({"metrics", "--output", target}).out, "");
  EXPECT_NE(test::read_file(target).find("cvanomaly_rows_waiting 0"), std::string::npos);
  struct stat file {};
  stat(target.c_str(), &file);
  EXPECT_EQ(file.st_mode & 0777U, 0644U);
  const std::string before = test::read_file(target);
  sql("DROP TABLE HIST_DATA");
  EXPECT_EQ(say({"metrics", "--output", target}).status, 5);
  EXPECT_EQ(test::read_file(target), before);
}

TEST_F(Metrics, AFileThatCannotBeWrittenIsTrouble) {
  const Said said = say({"metrics", "--output", directory_("none/x.prom")});
  EXPECT_EQ(said.status, 8);
  EXPECT_NE(said.error.find("No such file"), std::string::npos);
}

}  // namespace
}  // namespace corvane::ctl
