#include "operator_tool/terminal/chart.h"
#include "operator_tool/terminal/words.h"
#include "tests/unit/operator_tool/layout/commands_world.h"

namespace corvane::ctl {
namespace {

class ShowCommand : public Commands {
 protected:
  // What `show` says of the anomaly of a backup; `more`: further members of its details.
  std::string shown(const TestBackup& backup) { return say({"show", key_of(backup)}).out; }
  void details(const std::string& id, const std::string& text) {
    sql("INSERT INTO ANOMALY_DATA VALUES (" + quoted(id) + ", " + quoted(text) +
        ", 0, 'key', 'cl', 99)");
  }
  // A figure with a usual value and this deviation.
  static std::string figure(const std::string& name, double value, double deviation) {
    return R"({"name":")" + name + R"(","value":)" + std::to_string(value) +
           R"(,"usual":1,"usual_low":1,"usual_high":2,"deviation":)" + std::to_string(deviation) +
           "}";
  }
  // The title of the chart, "" when there is none.
  static std::string chart_title(const std::string& text) {
    const std::size_t end = text.find(", latest backups of the stream (^ anomalous)\n");
    if (end == std::string::npos) return "";
    return text.substr(text.rfind('\n', end) + 1, end - text.rfind('\n', end) - 1);
  }
};

TEST_F(ShowCommand, WholeByAnyOfItsNames) {
  three_anomalies();
  const TestBackup b{.client = "b", .time = kNow - kDay, .mark = 2, .files = 100};
  history({.client = "b", .time = kNow - kDay}, 3);
  insert("DATA_TO_PROCESS", b);
  deliveries(
      "incident_" + key_of(b),
      {{.state = alert::DeliveryState::kWaiting, .created = kNow - 60, .reason = "no answer"},
       {.channel = "web",
        .kind = alert::Kind::kBegin,
        .state = alert::DeliveryState::kDelivered,
        .created = kNow - 120,
        .reason = "was down"},
       {.message = 2, .state = alert::DeliveryState::kWaiting, .created = kNow}});
  FigureViews figures;
  figures[kFiles] = {true, true, 100, 990, 1000, 1010, -9};
  const std::vector<Bar> bars{{1000, false}, {1000, false}, {1000, false}, {100, true}};
  const std::string wanted =
      "Anomaly       anomaly_" + key_of(b) +
      "\nSeverity      critical\n"
      "Backup        b_1699913600 from 2023-11-13 22:13 UTC\n"
      "Stream        b, policy nightly, schedule daily (FULL)\n"
      "Summary       daily backup of b: unusual\n"
      "Cause         Files may have been encrypted.\n"
      "Incident      incident_" +
      key_of(b) +
      "\nLast good     good from 2023-11-13 18:26 UTC\n"
      "Detected      2023-11-13 22:14 UTC\n"
      "Review        false positive, since 2023-11-13 23:13\n"
      "Deliveries    mail (report) pending, 2023-11-14 22:12: no answer; web (begin) delivered, "
      "2023-11-14 22:11; mail (report) pending, 2023-11-14 22:13\n\n" +
      figures_table({}, figures) + "\nFiles, latest backups of the stream (^ anomalous)\n" +
      column_chart({}, bars, 6, [](double value) { return amount_text(kFiles, value); });
  const std::string key = key_of(b);
  for (const std::string& name : {"anomaly_" + key, key, "b_" + std::to_string(b.time)}) {
    const Said said = say({"show", name});
    EXPECT_EQ(said.status, 0) << said.error;
    EXPECT_EQ(said.out, wanted);
  }
}

TEST_F(ShowCommand, OfNothing) {
  const Said none = say({"show", "nothing"});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.out, "");
  EXPECT_EQ(none.error,
            "cvanomalyctl: No anomaly has the id, UNIQUE_KEY or backup id nothing. "
            "\"cvanomalyctl anomalies\" lists the ids.\n");
}

TEST_F(ShowCommand, OfDetailsThatAreNoJson) {
  details("x", "{broken");
  EXPECT_EQ(say({"show", "x"}).out,
            "Anomaly       x\nSeverity      major\nBackup        unknown\n"
            "Stream        cl, policy , schedule  ()\nSummary       \nCause         unknown\n"
            "Incident      x\nDetected      1970-01-01 00:01 UTC\nReview        not reviewed\n");
}

TEST_F(ShowCommand, ACauseWithoutWords) {
  details("x", R"({"causes":[{"id":"packed","words":""}]})");
  EXPECT_TRUE(says(say({"show", "x"}), "Cause         unknown\n")) << say({"show", "x"}).out;
}

TEST_F(ShowCommand, AConfirmedOne) {
  anomaly({}, 2, {});
  feedback({}, 0);
  EXPECT_NE(shown({}).find("Review        confirmed, since 2023-11-14 23:13\n"), std::string::npos)
      << shown({});
}

// How the deliveries are named for people and in JSON documents.
TEST_F(ShowCommand, StatesOfDeliveries) {
  anomaly({}, 2, {});
  using State = alert::DeliveryState;
  deliveries("incident_" + key_of({}), {{1, "a", alert::Kind::kReport, State::kWaiting},
                                        {2, "b", alert::Kind::kBegin, State::kFolded},
                                        {3, "c", alert::Kind::kRise, State::kDelivered, kNow - 60},
                                        {4, "d", alert::Kind::kEnd, State::kGivenUp, kNow, "why"},
                                        {5, "e", alert::Kind::kSummary, State::kReplaced}});
  EXPECT_NE(shown({}).find("Deliveries    a (report) pending, 2023-11-14 22:13; b (begin) part of "
                           "a summary, 2023-11-14 22:13; c (rise) delivered, 2023-11-14 22:12; d "
                           "(end) dead letter, 2023-11-14 22:13; e (summary) replaced, 2023-11-14 "
                           "22:13\n"),
            std::string::npos)
      << shown({});
  EXPECT_EQ(compact(json_object_get(json({"show", key_of({})}).get(), "told")),
            R"([{"channel":"a","kind":"report","state":"waiting","time":1700000000},)"
            R"({"channel":"b","kind":"begin","state":"in a summary","time":1700000000},)"
            R"({"channel":"c","kind":"rise","state":"taken","time":1699999940},)"
            R"({"channel":"d","kind":"end","state":"given up","time":1700000000},)"
            R"({"channel":"e","kind":"summary","state":"replaced","time":1700000000}])");
}

// Of the figures that have a chart the one that deviates the most, whichever way.
TEST_F(ShowCommand, TheChartIsOfWhatDeviatesTheMost) {
  history({}, 3);
  int number = 0;
  const auto title_with = [&](const std::string& features) {
    const TestBackup backup{.time = kNow + ++number};
    insert("DATA_TO_PROCESS", {.time = backup.time, .mark = 2});
    details("anomaly_" + key_of(backup),
            R"({"time":)" + std::to_string(backup.time) + R"(,"features":[)" + features + "]}");
    return chart_title(shown(backup));
  };
  const std::string size = names_of(kSize).label;
  const std::string transferred = names_of(kTransferred).label;
  for (const auto& [features, title] : std::vector<std::pair<std::string, std::string>>{
           {figure("files", 5, 1), "Files"},
           {figure("files", 5, 1) + "," + figure("image_size", 5, -2), size},
           {figure("files", 5, 1) + "," + figure("kb_transferred", 5, 3), transferred},
           {figure("dedup_ratio", 5, 9) + "," + figure("files", 5, 1), "Files"},
           {figure("duration", 5, 9) + "," + figure("kb_transferred", 5, 1), transferred},
           {figure("files", 5, 0), size},
           {figure("dedup_ratio", 5, 9), size},
           {"", size}}) {
    EXPECT_EQ(title_with(features), title) << features;
  }
}

TEST_F(ShowCommand, TheChartHasTheFiguresThatItNames) {
  history({.files = 11, .size_kb = 22 * 1024, .transferred_kb = 33 * 1024}, 3);
  const auto top_of = [&](const std::string& name, int later) {
    const TestBackup backup{.time = kNow + later};
    details("anomaly_" + key_of(backup), R"({"time":)" + std::to_string(backup.time) +
                                             R"(,"stream":{"client":"web01","policy":"nightly",)"
                                             R"("policy_type":"STANDARD","schedule_type":"FULL",)"
                                             R"("schedule_name":"daily","application_type":"FS",)"
                                             R"("destination":"disk"},"features":[)" +
                                             figure(name, 5, 1) + "]}");
    const std::string text = shown(backup);
    const std::size_t at = text.find("anomalous)\n") + 11;
    return text.substr(at, text.find(" \xE2\x94\xA4", at) - at);
  };
  EXPECT_EQ(top_of("files", 1), "11");
  EXPECT_EQ(top_of("image_size", 2), "22 MB");
  EXPECT_EQ(top_of("kb_transferred", 3), "33 MB");
}

TEST_F(ShowCommand, TheHistoryEndsWithTheBackupAndIsLimited) {
  anomaly({}, 2, {});
  insert("DATA_TO_PROCESS", {.mark = 2});
  insert("HIST_DATA", {.time = kNow + 1});
  const auto points = [&] {
    return json_array_size(json_object_get(json({"show", key_of({})}).get(), "history"));
  };
  history({}, 198);
  EXPECT_EQ(points(), 199U);
  history({.time = kNow - 198 * kDay}, 1);
  EXPECT_EQ(points(), 200U);
  history({.time = kNow - 199 * kDay}, 1);
  EXPECT_EQ(points(), 200U);
}

TEST_F(ShowCommand, AsJson) {
  three_anomalies();
  insert("HIST_DATA",
         {.client = "c", .time = kNow - kDay, .files = 11, .size_kb = 22, .transferred_kb = 33});
  const TestBackup bad{.client = "c", .mark = 2, .files = 44, .size_kb = 55, .transferred_kb = 66};
  insert("DATA_TO_PROCESS", bad);
  const JsonPtr root = json({"show", key_of(bad)});
  EXPECT_EQ(compact(json_object_get(root.get(), "history")),
            R"([{"time":1699913600,"unique_key":)" +
                quoted_json(key_of({.client = "c", .time = kNow - kDay})) +
                R"(,"files":11.0,"image_size":22.0,"kb_transferred":33.0,"reported":false},)"
                R"({"time":1700000000,"unique_key":)" +
                quoted_json(key_of(bad)) +
                R"(,"files":44.0,"image_size":55.0,"kb_transferred":66.0,"reported":true}])");
  EXPECT_EQ(compact(json_object_get(root.get(), "told")), "[]");
  const json_t* anomaly = json_object_get(root.get(), "anomaly");
  EXPECT_EQ(compact(json_object_get(anomaly, "id")), quoted_json("anomaly_" + key_of(bad)));
  EXPECT_EQ(number(anomaly, {"details", "job_id"}), 1);
  EXPECT_EQ(json_object_get(anomaly, "incident_over"), nullptr);
}

// Names in the details have lost bytes that are not UTF-8.
TEST_F(ShowCommand, TheStreamIsThatOfTheRow) {
  const TestBackup odd{.client = "a\xFF"};
  history(odd, 3);
  insert("DATA_TO_PROCESS", {.client = odd.client, .mark = 2});
  details("anomaly_" + key_of(odd), R"({"time":1700000000})");
  const JsonPtr root = json({"show", "anomaly_" + key_of(odd)});
  EXPECT_EQ(json_array_size(json_object_get(root.get(), "history")), 4U);
}

TEST_F(ShowCommand, Colours) {
  anomaly({}, 3, {});
  Options options;
  options.id = key_of({});
  EXPECT_NE(in_colour(run_show, options).find("\x1B[31mcritical\x1B[0m\n"), std::string::npos);
}

}  // namespace
}  // namespace corvane::ctl
