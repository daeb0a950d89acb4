#include "operator_tool/layout/health_json.h"
#include "operator_tool/report/report.h"
#include "tests/unit/operator_tool/layout/commands_world.h"

namespace corvane::ctl {
namespace {

class ReportCommand : public Commands {
 protected:
  std::string target() const { return directory_("report.html"); }
  Said report(const std::vector<std::string>& more = {}) {
    std::vector<std::string> all{"report", "--html", target()};
    all.insert(all.end(), more.begin(), more.end());
    Said said = say(all);
    EXPECT_EQ(said.status, 0) << said.error;
    return said;
  }
  // The data of the page that is there.
  JsonPtr data() const {
    const std::string page = test::read_file(target());
    const std::string begin = R"(<script type="application/json" id="data">)";
    const std::size_t from = page.find(begin) + begin.size();
    return JsonPtr(
        json_loads(page.substr(from, page.find("</script>", from) - from).c_str(), 0, nullptr));
  }
  std::string part(const char* name) const { return compact(json_object_get(data().get(), name)); }
  // An anomaly with these details, without the stream of any backup.
  void details(const std::string& id, const std::string& text, std::int64_t detected = kNow) {
    sql("INSERT INTO ANOMALY_DATA VALUES (" + quoted(id) + ", " + quoted(text) +
        ", 0, 'key', 'cl', " + std::to_string(detected) + ")");
  }
};

TEST_F(ReportCommand, SaysWhatItWrote) {
  history({.client = "a"}, 3);
  history({.client = "b"}, 3);
  three_anomalies();
  const std::string out = report({"--days", "60"}).out;
  const auto bytes = std::filesystem::file_size(target());
  EXPECT_EQ(out, target() + ": 2 clients, 3 anomalies, " +
                     size_text(static_cast<double>(bytes) / 1024) + "\n");
  EXPECT_EQ(compact(json({"report", "--html", target(), "--days", "60"}).get()),
            R"({"schema":1,"command":"report","file":")" + target() + R"(","bytes":)" +
                std::to_string(std::filesystem::file_size(target())) +
                R"(,"clients":2,"anomalies":3})");
  sql("DELETE FROM HIST_DATA WHERE CLIENT = 'b'");
  EXPECT_TRUE(says(report({"--days", "1"}), ": 1 client, 2 anomalies, "));
}

TEST_F(ReportCommand, Head) {
  configure("[ANOMALY_MODEL_SETTINGS]\nMIN_OBSERVATIONS_FOR_TRAINING=29\n");
  gathered(kNow - 600);
  history({}, 29);
  report();
  EXPECT_EQ(part("command"), "\"report\"");
  EXPECT_EQ(part("utc"), "true");
  EXPECT_EQ(part("days"), "30");
  EXPECT_EQ(part("from"), std::to_string(kNow - 30 * kDay));
  EXPECT_EQ(part("shortened"), "false");
  EXPECT_EQ(part("records_wanted"), "29");
  EXPECT_EQ(part("time"), std::to_string(kNow));
  EXPECT_EQ(part("streams"), R"({"total":1,"learning":0,"judged":1,"dormant":0})");
  report({"--days", "1"});
  EXPECT_EQ(part("days"), "1");
  EXPECT_EQ(part("from"), std::to_string(kNow - kDay));
}

TEST_F(ReportCommand, OfAnEmptyDatabase) {
  EXPECT_TRUE(says(report(), ": 0 clients, 0 anomalies, "));
  EXPECT_EQ(part("clients"), "[]");
  EXPECT_EQ(part("anomalies"), "[]");
  EXPECT_EQ(part("anomalies_left_out"), "0");
  EXPECT_EQ(part("incidents"), "[]");
  EXPECT_EQ(part("learning"), "[]");
}

TEST_F(ReportCommand, ClientsWithTheirStreams) {
  insert("HIST_DATA", {.client = "a",
                       .time = kNow - 200,
                       .policy = "p1",
                       .schedule = "s1",
                       .files = 1,
                       .size_kb = 2,
                       .transferred_kb = 3});
  insert("DATA_TO_PROCESS", {.client = "a",
                             .time = kNow - 100,
                             .mark = 2,
                             .policy = "p1",
                             .schedule = "s1",
                             .files = 0,
                             .size_kb = 5,
                             .transferred_kb = 6});
  insert("HIST_DATA", {.client = "a",
                       .time = kNow - 300,
                       .policy = "p2",
                       .schedule = "s2",
                       .files = -1,
                       .size_kb = 2e15,
                       .transferred_kb = 9});
  insert("HIST_DATA", {.client = "b", .time = kNow - 30 * kDay, .files = 7, .size_kb = 8});
  insert("HIST_DATA", {.client = "c", .time = kNow - 30 * kDay - 1});
  report();
  EXPECT_EQ(part("clients"),
            R"([{"name":"a","streams":[{"policy":"p1","schedule":"s1","state":"learning",)"
            R"("time":[1699999800,1699999900],"files":[1,0],"size":[2,5],"moved":[3,6],)"
            R"("reported":[1]},{"policy":"p2","schedule":"s2","state":"learning",)"
            R"("time":[1699999700],"files":[null],"size":[1000000000000000],"moved":[9],)"
            R"("reported":[]}]},{"name":"b","streams":[{"policy":"nightly","schedule":"daily",)"
            R"("state":"learning","time":[1697408000],"files":[7],"size":[8],"moved":[5000],)"
            R"("reported":[]}]}])");
}

TEST_F(ReportCommand, Anomalies) {
  const TestBackup bad{.client = "b", .time = kNow - kDay};
  anomaly(bad, 3, bad);
  feedback(bad, 1);
  report();
  EXPECT_EQ(part("anomalies"),
            R"([{"client":"b","policy":"nightly","schedule_name":"daily","severity":3,)"
            R"("severity_words":"critical","cause_words":"Files may have been encrypted.",)"
            R"("summary":"daily backup of b: unusual","time":1699913600,"detected":1699913660,)"
            R"("state":"false_positive","review":"false positive","figures":[{"label":"Files",)"
            R"("value":"100","usual":"990 to 1,010"}]}])");
}

TEST_F(ReportCommand, AnomaliesOfThePeriod) {
  const auto add = [&](const std::string& client, std::int64_t time) {
    anomaly({.client = client, .time = time}, 2, {.client = client, .time = time});
  };
  add("a", kNow - 30 * kDay);
  add("b", kNow - 30 * kDay - 1);
  EXPECT_TRUE(says(report(), " 1 anomaly, "));
  EXPECT_EQ(json_array_size(json_object_get(data().get(), "incidents")), 2U);  // both ongoing
  EXPECT_TRUE(says(report({"--days", "31"}), " 2 anomalies, "));
}

TEST_F(ReportCommand, FiguresThatHaveAUsualValue) {
  details("x", R"({"time":1700000000,"features":[{"name":"files","value":5,"usual":1,)"
               R"("usual_low":1,"usual_high":2,"deviation":1},{"name":"image_size","value":7}]})");
  report();
  const JsonPtr root = data();
  const json_t* figures =
      json_object_get(json_array_get(json_object_get(root.get(), "anomalies"), 0), "figures");
  ASSERT_EQ(json_array_size(figures), 1U);
  EXPECT_EQ(compact(json_object_get(json_array_get(figures, 0), "label")), "\"Files\"");
}

TEST_F(ReportCommand, LongTextsAreCut) {
  const std::string text(2001, 'x');
  details("x", R"({"time":1700000000,"summary":")" + text + R"(","causes":[{"id":"packed",)" +
                   R"("words":")" + text + "\"}]}");
  report();
  const JsonPtr root = data();
  const json_t* anomaly = json_array_get(json_object_get(root.get(), "anomalies"), 0);
  for (const char* name : {"summary", "cause_words"}) {
    EXPECT_EQ(json_string_length(json_object_get(anomaly, name)), 2000U) << name;
  }
  const json_t* incident = json_array_get(json_object_get(root.get(), "incidents"), 0);
  EXPECT_EQ(json_string_length(json_object_get(incident, "summary")), 2000U);
}

TEST_F(ReportCommand, OngoingIncidentsThenResolvedOnesOfThePeriod) {
  const auto incident = [&](const std::string& client, int days, bool is_resolved) {
    const TestBackup first{.client = client, .time = kNow - (days + 1) * kDay};
    const TestBackup last{.client = client, .time = kNow - days * kDay};
    anomaly(first, 3, first);
    anomaly(last, 2, first);
    if (is_resolved) feedback(first, 1);
  };
  incident("a", 29, true);
  incident("b", 30, true);
  incident("c", 31, true);
  incident("d", 2, true);
  incident("e", 60, false);
  incident("f", 61, false);
  report();
  const JsonPtr root = data();
  const json_t* incidents = json_object_get(root.get(), "incidents");
  std::string clients;
  for (std::size_t i = 0; i < json_array_size(incidents); ++i) {
    const json_t* one = json_array_get(incidents, i);
    clients += json_string_value(json_object_get(one, "client"));
    EXPECT_EQ(json_is_true(json_object_get(one, "over")), i >= 2);
  }
  EXPECT_EQ(clients, "efdab");
  EXPECT_EQ(compact(json_array_get(incidents, 3)),
            R"({"name":"incident_)" + key_of({.client = "a", .time = kNow - 30 * kDay}) +
                R"(","client":"a","severity":3,"severity_words":"critical","cause":"encryption",)"
                R"("summary":"daily backup of a: unusual","first":1697408000,"last":1697494400,)"
                R"("records":2,"over":true})");
}

TEST_F(ReportCommand, StreamsThatAreLearning) {
  history({.client = "a", .policy = "p1", .schedule = "s1"}, 3);
  history({.client = "b"}, 40);
  history({.client = "c", .time = kNow - 400 * kDay}, 3);
  report();
  EXPECT_EQ(part("learning"), R"([{"client":"a","policy":"p1","schedule":"s1","records":3}])");
}

TEST_F(ReportCommand, HasTheHealthOfStatus) {
  gathered(kNow - 600);
  history({}, 3);
  report();
  const JsonPtr status = json({"status"});
  for (const char* name : {"processes", "gather", "alerts", "database_bytes", "records"}) {
    EXPECT_EQ(part(name), compact(json_object_get(status.get(), name))) << name;
  }
}

class ReportChanging : public Changing {};

TEST_F(ReportChanging, TheFileStaysAsItWas) {
  const std::string target = directory_("report.html");
  test::write_file(target, "former");
  EXPECT_EQ(say({"report", "--html", target}).status, 4);
  EXPECT_EQ(test::read_file(target), "former");
}

}  // namespace
}  // namespace corvane::ctl
