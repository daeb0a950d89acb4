#include "companions/alert/incident/sentence.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jansson.h>

#include <limits>

#include "companions/alert/channel/message.h"
#include "platform/c_handles.h"
#include "tests/unit/alert/alert_world.h"

namespace corvane::alert {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

Anomaly read(const std::string& details) {
  AnomalyRow row;
  row.id = "anomaly_1";
  row.details = details;
  row.detection_key = "key";
  row.client = "web01";
  row.detection_time = kFirst + 60;
  return read_anomaly(std::move(row));
}

Words words_for(const Anomaly& anomaly, const std::string& master) {
  return words_for_anomaly(anomaly, {kFirst, "anomaly_0", master});
}

TEST(Sentence, SaysWhatDiffersByHowMuchSinceWhenAndWhatToDo) {
  const Anomaly anomaly = read(details_of("c", "incident_0", 3, kFirst));
  const Words words = words_for_anomaly(anomaly, {kFirst - kDay, "anomaly_0", "m"});
  EXPECT_EQ(words.subject,
            "The daily backup of client c (policy nightly): 100 files, 10% of the usual 1,000; "
            "looks like encryption");
  EXPECT_EQ(words.body,
            "The daily backup of client c (policy nightly) from 2023-11-14 22:13 UTC is "
            "unusual: 100 files, 10% of the usual 1,000 (990 to 1,010).\n"
            "Likely cause: Files may have been encrypted.\n"
            "Unusual since 2023-11-13 22:13 UTC. The last good backup is good from 2023-11-13 "
            "18:26 UTC.\n"
            "If this backup is as expected, mark anomaly anomaly_0 as FALSE_POSITIVE in the web "
            "interface of m. Similar backups are then treated as normal.\n");
}

TEST(Sentence, NamesTheTwoThatAreOffTheFarthestAndTheDurationLast) {
  const Anomaly anomaly = read(R"({"stream":{"client":"c"},"features":[
        {"name":"duration","value":9,"usual":1,"usual_low":1,"usual_high":1,"deviation":99},
        {"name":"files","value":7,"usual":7,"usual_low":7,"usual_high":7,"deviation":0},
        {"name":"dedup_ratio","value":1.25,"usual":50,"usual_low":48,"usual_high":52,"deviation":-5},
        {"name":"kb_transferred","value":5,"usual":0,"usual_low":0,"usual_high":2,"deviation":7},
        {"name":"image_size","value":5}]})");
  const std::string body = words_for(anomaly, "").body;
  EXPECT_THAT(body, HasSubstr("unusual: 5 KB transferred, usually 0 to 2 KB; deduplication ratio "
                              "1.25, 3% of the usual 50 (48 to 52).\n"));
  EXPECT_THAT(body, HasSubstr("web interface of the master server"));
  EXPECT_THAT(body, HasSubstr("No earlier good backup is known."));
  EXPECT_THAT(body, Not(HasSubstr("cause")));
}

TEST(Sentence, SaysTheRangeWhereTheUsualVariesALot) {
  const Anomaly anomaly = read(R"({"stream":{"client":"c"},"features":[
        {"name":"files","value":16278,"usual":11.38,"usual_low":0,"usual_high":2048,"deviation":9},
        {"name":"image_size","value":1,"usual":10.4,"usual_low":10.2,"usual_high":12,"deviation":-5}]})");
  EXPECT_EQ(words_for(anomaly, "").subject,
            "The backup of client c: 16,278 files, usually 0 to 2,048");
  EXPECT_THAT(words_for(anomaly, "").body,
              HasSubstr(": 16,278 files, usually 0 to 2,048; 1 KB in size, 10% of the usual 10 KB "
                        "(10 to 12 KB).\n"));
}

TEST(Sentence, SaysSizesAndSpansInUnitsOfPeopleAndARatioWithoutABound) {
  const Words words = words_for(read(R"({"stream":{"client":"c"},"features":[
        {"name":"image_size","value":800000,"usual":20000,"usual_low":19000,"usual_high":21000,
         "deviation":9},
        {"name":"dedup_ratio","value":1.25,"usual":null,"usual_low":3.84,"usual_high":null,
         "deviation":-5}]})"),
                                "");
  EXPECT_EQ(words.subject, "The backup of client c: 781 MB in size, 40 times the usual 20 MB");
  EXPECT_THAT(words.body, HasSubstr("usual 20 MB (19 to 21 MB); deduplication ratio 1.25, "
                                    "usually at least 3.84.\n"));
  // As rows of former versions spell it.
  EXPECT_THAT(words_for(read(R"({"stream":{"client":"c"},"features":[
        {"name":"dedup_ratio","value":1.25,"usual":1000000,"usual_low":3.84,"usual_high":1000000,
         "deviation":-5}]})"),
                        "")
                  .subject,
              HasSubstr("deduplication ratio 1.25, usually at least 3.84"));
  EXPECT_THAT(words_for(read(R"({"stream":{"client":"c"},"features":[
        {"name":"duration","value":720,"usual":60,"usual_low":50,"usual_high":70,
         "deviation":9}]})"),
                        "")
                  .subject,
              HasSubstr("took 12 min, 12 times the usual 1 min"));
}

// Each figure of such a backup may be a normal one, so none of them is the reason.
TEST(Sentence, OfASlowChangeNamesTheRunsThatItTook) {
  const std::string begin = R"({"stream":{"client":"c"},"causes":[{"id":"encryption"}],"features":[
        {"name":"kb_transferred","value":50000,"usual":9000,"usual_low":222,"usual_high":90828,
         "deviation":1.5}],"slow_change":)";
  const std::string change =
      R"({"runs":3,"measure":"kb_transferred","share":0.0512,"share_before":0.01})";
  const std::string words =
      "in each of 3 backups in a row, at least 5.1% of the data was new (previous maximum for 3 "
      "in "
      "a row: 1%)";
  const Words said = words_for(read(begin + change + "}"), "m");
  EXPECT_EQ(said.subject, "The backup of client c: " + words + "; looks like encryption");
  EXPECT_THAT(said.body, HasSubstr(" is unusual: " + words + ".\n"));
  EXPECT_THAT(said.body, Not(HasSubstr("49 MB")));
  for (const char* foreign : {"7", R"({"runs":3,"measure":"files"})",
                              R"({"runs":1,"measure":"files","share":0.1,"share_before":0})",
                              R"({"runs":3,"measure":"moons","share":0.1,"share_before":0})",
                              R"({"runs":3,"measure":"files","share":0.1,"share_before":0.2})",
                              R"({"runs":3,"measure":"files","share":1e300,"share_before":0})"}) {
    EXPECT_THAT(words_for(read(begin + foreign + "}"), "m").subject, HasSubstr("49 MB transferred"))
        << foreign;
  }
}

TEST(Sentence, ForeignDetailsLeaveWhatTheRowKnows) {
  const Words words = words_for(read("no json"), "m");
  EXPECT_EQ(words.subject, "The backup of client web01 is unusual");
  EXPECT_EQ(words_for(read(R"({"features":7,"stream":"s"})"), "m").subject, words.subject);
  EXPECT_THAT(words.body,
              HasSubstr(" is unusual. No details are available; the detection key is key.\n"));
}

// Of files: how they differ, and the range where that is said too.
std::string said(double value, double low, double usual, double high) {
  Anomaly anomaly;
  anomaly.finding.stream.client = "c";
  anomaly.finding.figures[kFiles] = {true, true, value, low, usual, high, 9};
  const std::string begin = "The backup of client c is unusual: " +
                            value_in_words(kFiles, anomaly.finding.figures[kFiles]) + ", ";
  const std::string body = words_for(anomaly, "").body;
  EXPECT_THAT(body, ::testing::StartsWith(begin));
  return body.substr(begin.size(), body.find(".\n") - begin.size());
}

TEST(Sentence, SaysTimesOrPercentOfTheUsualUnlessItVariesALot) {
  EXPECT_EQ(said(2000, 990, 1000, 1010), "2 times the usual 1,000 (990 to 1,010)");
  EXPECT_EQ(said(2049, 990, 1000, 1010), "2 times the usual 1,000 (990 to 1,010)");
  EXPECT_EQ(said(12'340, 990, 1000, 1010), "12.3 times the usual 1,000 (990 to 1,010)");
  EXPECT_EQ(said(1999, 990, 1000, 1010), "200% of the usual 1,000 (990 to 1,010)");
  EXPECT_EQ(said(1500, 990, 1000, 1010), "150% of the usual 1,000 (990 to 1,010)");
  EXPECT_EQ(said(5, 990, 1000, 1010), "1% of the usual 1,000 (990 to 1,010)");
  EXPECT_EQ(said(4, 990, 1000, 1010), "less than 1% of the usual 1,000 (990 to 1,010)");
  EXPECT_EQ(said(10, 250, 1000, 4000), "1% of the usual 1,000 (250 to 4,000)");
  EXPECT_EQ(said(10, 249, 1000, 4000), "usually 249 to 4,000");
  EXPECT_EQ(said(10, 250, 1000, 4001), "usually 250 to 4,001");
}

TEST(Sentence, SaysTheRangeWhereAFactorSaysNothing) {
  EXPECT_EQ(said(0, 990, 1000, 1010), "usually 990 to 1,010");
  EXPECT_EQ(said(1004, 1001, 1000, 1002), "usually 1,001 to 1,002");
  EXPECT_EQ(said(1006, 1001, 1000, 1002), "101% of the usual 1,000 (1,001 to 1,002)");
  EXPECT_EQ(said(5, 0, 0, 0), "usually 0");
  EXPECT_EQ(said(5, -1, -2, -3), "usually -1 to -3");
  EXPECT_EQ(said(5, 0.25, 1, 4), "5 times the usual 1 (0 to 4)");
}

TEST(Sentence, SaysTheRangeOfARatioWithoutABound) {
  const auto subject = [](const FigureView& view) {
    Anomaly anomaly;
    anomaly.finding.stream.client = "c";
    anomaly.finding.figures[kRatio] = view;
    return words_for(anomaly, "").subject;
  };
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(subject({true, true, infinity, 2, 3, 4, 9}),
            "The backup of client c: deduplication ratio unlimited, usually 2 to 4");
  EXPECT_EQ(subject({true, true, 3, infinity, infinity, infinity, 9}),
            "The backup of client c: deduplication ratio 3, usually unlimited");
  EXPECT_EQ(subject({true, true, 3, 1, 2e6, 2e6, 9}),
            "The backup of client c: deduplication ratio 3, usually at least 1");
}

TEST(Sentence, NamesAllThatIsKnownOfTheBackup) {
  Anomaly anomaly;
  anomaly.finding.stream.client = "<c>";
  EXPECT_EQ(words_for(anomaly, "").subject, "The backup of client \u2039c\u203A is unusual");
  anomaly.finding.stream.schedule_name = "da\nily";
  EXPECT_EQ(words_for(anomaly, "").subject, "The da ily backup of client \u2039c\u203A is unusual");
  anomaly.finding.stream.policy = "p\n";
  anomaly.finding.time = 1;
  EXPECT_THAT(words_for(anomaly, "").body,
              ::testing::StartsWith("The da ily backup of client \u2039c\u203A (policy p ) from "
                                    "1970-01-01 00:00 UTC is unusual. No details"));
  anomaly.finding.summary = "what\nis known";
  EXPECT_THAT(words_for(anomaly, "").body, HasSubstr(" is unusual. what is known\nUnusual since"));
}

TEST(Sentence, CutsLongTexts) {
  Anomaly anomaly;
  const std::string most(400, 'x');
  anomaly.finding.causes = {{CauseKind::kPacked, most + "yz"}};
  anomaly.finding.summary = most + "yz";
  const std::string body =
      words_for_anomaly(anomaly, {kFirst, most + "yz", std::string(201, 'm')}).body;
  EXPECT_THAT(body, HasSubstr(" is unusual. " + most + "\u2026\n"));
  EXPECT_THAT(body, HasSubstr("Likely cause: " + most + "\u2026\n"));
  EXPECT_THAT(body, HasSubstr("mark anomaly " + most + "\u2026 as FALSE_POSITIVE"));
  EXPECT_THAT(body, HasSubstr("web interface of " + std::string(200, 'm') + "\u2026. Similar"));
}

TEST(Sentence, OfACauseWithoutWordsSaysItsPhraseOnly) {
  Anomaly anomaly;
  anomaly.finding.stream.client = "c";
  anomaly.finding.causes = {{CauseKind::kPacked, ""}, {CauseKind::kEncryption, "words"}};
  EXPECT_EQ(words_for(anomaly, "").subject,
            "The backup of client c is unusual; looks like files packed into archives");
  EXPECT_THAT(words_for(anomaly, "").body, Not(HasSubstr("cause")));
}

TEST(Sentence, TheEnd) {
  const StreamKey stream{"c", "p", "", "", "daily", "", ""};
  const Words words = words_for_end({stream, kFirst, kFirst + kDay, 1, false});
  EXPECT_EQ(words.subject,
            "Back to normal since 2023-11-15 22:13 UTC: the daily backup of client c (policy p)");
  EXPECT_EQ(
      words.body,
      "The daily backup of client c (policy p) has been back to normal since 2023-11-15 22:13 "
      "UTC. It had been unusual since 2023-11-14 22:13 UTC (1 backup).\n");
  EXPECT_EQ(
      words_for_end({stream, kFirst, kFirst, 3, true}).body,
      "The daily backup of client c (policy p) has been back to normal since 2023-11-14 22:13 "
      "UTC. It had been unusual since 2023-11-14 22:13 UTC (3 backups).\n"
      "The change has lasted and is now part of the baseline.\n");
}

TEST(Document, IsJsonWhateverTheNamesAre) {
  Message message;
  message.kind = Kind::kBegin;
  message.severity = Severity::kCritical;
  message.subject = "s";
  message.client = std::string("a\xFF\"\n\0", 5);
  message.details = "no json";
  const std::string document = document_of(message);
  const JsonPtr root(json_loads(document.c_str(), 0, nullptr));
  ASSERT_NE(root, nullptr);
  EXPECT_THAT(document, HasSubstr(R"("subject":"[critical] s")"));
  EXPECT_THAT(document, HasSubstr("\"clientName\":\"a\xEF\xBF\xBD\\\"\\n\\ufffd\""));
  EXPECT_THAT(document, HasSubstr(R"("details":{})"));
  EXPECT_THAT(document, HasSubstr(R"("state":"open")"));
  EXPECT_THAT(document, Not(HasSubstr("until")));
  EXPECT_EQ(document.find('\n'), std::string::npos);
  message.until = 5;
  EXPECT_THAT(document_of(message), HasSubstr(R"("state":"ended")"));
}

}  // namespace
}  // namespace corvane::alert
