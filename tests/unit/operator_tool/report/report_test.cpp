#include "operator_tool/report/report.h"

#include <jansson.h>
#include <openssl/evp.h>

#include "operator_tool/report/report_parts.h"
#include "platform/c_handles.h"
#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::ctl {
namespace {

std::size_t count(const std::string& text, const std::string& part) {
  std::size_t number = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++number;
  }
  return number;
}

std::string between(const std::string& text, const std::string& begin, const std::string& end) {
  const std::size_t from = text.find(begin) + begin.size();
  return text.substr(from, text.find(end, from) - from);
}

std::string base64_sha256(const std::string& text) {
  unsigned char digest[32];
  EVP_Digest(text.data(), text.size(), digest, nullptr, EVP_sha256(), nullptr);
  unsigned char base64[64];
  const int length = EVP_EncodeBlock(base64, digest, sizeof digest);
  return {reinterpret_cast<const char*>(base64), static_cast<std::size_t>(length)};
}

constexpr char kHostile[] =
    R"({"name":"</script><img src=x onerror=alert(1)><!-- {{chart}} {{script}} <SCRIPT>"})";

TEST(ReportPage, TheDataCannotLeaveItsElement) {
  const std::string page = report_page(kHostile);
  EXPECT_EQ(page.find("<img"), std::string::npos);
  EXPECT_EQ(page.find("<SCRIPT"), std::string::npos);
  EXPECT_EQ(count(page, "</script>"), 4U);
  const std::string data =
      between(page, R"(<script type="application/json" id="data">)", "</script>");
  EXPECT_EQ(data.find('<'), std::string::npos);
  const JsonPtr shown(json_loads(data.c_str(), 0, nullptr));
  const JsonPtr given(json_loads(kHostile, 0, nullptr));
  EXPECT_TRUE(json_equal(shown.get(), given.get()));
}

TEST(ReportPage, OnlyItsOwnScriptsMayRun) {
  const std::string page = report_page("{}");
  const std::string policy = between(page, "content=\"", "\"");
  EXPECT_TRUE(policy.starts_with("default-src 'none';")) << policy;
  EXPECT_EQ(policy.find("unsafe"), std::string::npos);
  std::size_t scripts = 0;
  for (std::size_t at = page.find("<script>"); at != std::string::npos;
       at = page.find("<script>", at + 1)) {
    const std::string script = page.substr(at + 8, page.find("</script>", at) - at - 8);
    EXPECT_NE(policy.find("'sha256-" + base64_sha256(script) + "'"), std::string::npos);
    ++scripts;
  }
  EXPECT_EQ(scripts, 3U);
  EXPECT_NE(policy.find("'sha256-" + base64_sha256(between(page, "<style>", "</style>")) + "'"),
            std::string::npos);
}

TEST(ReportPage, IsMadeOfItsParts) {
  const std::string page = report_page(R"({"a":"<"})");
  EXPECT_TRUE(page.starts_with("<!DOCTYPE html>"));
  EXPECT_TRUE(page.ends_with("</html>\n"));
  EXPECT_EQ(page.find("{{"), std::string::npos);
  EXPECT_EQ(between(page, "<style>", "</style>"), kReportStyle);
  EXPECT_EQ(between(page, R"(id="data">)", "</script>"), R"({"a":"\u003c"})");
  std::vector<std::string> scripts;
  for (std::size_t at = page.find("<script>"); at != std::string::npos;
       at = page.find("<script>", at + 1)) {
    scripts.push_back(between(page.substr(at), "<script>", "</script>"));
  }
  EXPECT_EQ(scripts,
            (std::vector<std::string>{std::string(kChartLibrary), std::string(kReportWords),
                                      std::string(kReportScript)}));
  EXPECT_EQ(between(page, "content=\"", "\""),
            "default-src 'none'; base-uri 'none'; form-action 'none'; style-src 'sha256-" +
                base64_sha256(std::string(kReportStyle)) + "'; script-src 'sha256-" +
                base64_sha256(scripts[0]) + "' 'sha256-" + base64_sha256(scripts[1]) +
                "' 'sha256-" + base64_sha256(scripts[2]) + "'");
}

TEST(ReportPage, LoadsNothingFromElsewhere) {
  const std::string own = std::string(kReportPage) + std::string(kReportStyle) +
                          std::string(kReportWords) + std::string(kReportScript);
  for (const char* what :
       {"http:", "https:", "src=", "href=", "@import", "url(", "fetch(", "XMLHttpRequest",
        "innerHTML", "outerHTML", "insertAdjacent", "document.write", "eval("}) {
    EXPECT_EQ(own.find(what), std::string::npos) << what;
  }
}

class Report : public OperatorWorld {
 protected:
  std::string target() const { return directory_("report.html"); }
  JsonPtr data() {
    const std::string page = test::read_file(target());
    return JsonPtr(json_loads(
        between(page, R"(<script type="application/json" id="data">)", "</script>").c_str(), 0,
        nullptr));
  }
};

TEST_F(Report, HoldsClientsAnomaliesAndIncidents) {
  run_everything();
  gathered(kNow - 600);
  history({.client = "b"}, 50);
  history({.client = "a"}, 3);
  insert("DATA_TO_PROCESS", {.client = "b", .time = kNow - 10, .mark = 2, .files = 5});
  anomaly({.client = "b", .time = kNow - 10}, 3, {.client = "b", .time = kNow - 10});
  anomaly({.client = "a", .time = kNow - 60 * kDay}, 3, {.client = "a", .time = kNow - 60 * kDay});
  const Said said = say({"report", "--html", target()});
  EXPECT_EQ(said.status, 0) << said.error;
  EXPECT_TRUE(said.out.starts_with(target() + ": 2 clients, 1 anomaly, ")) << said.out;
  const JsonPtr root = data();
  const json_t* clients = json_object_get(root.get(), "clients");
  ASSERT_EQ(json_array_size(clients), 2U);
  const json_t* second = json_array_get(clients, 1);
  EXPECT_STREQ(json_string_value(json_object_get(second, "name")), "b");
  const json_t* stream = json_array_get(json_object_get(second, "streams"), 0);
  EXPECT_EQ(json_array_size(json_object_get(stream, "time")), 31U);
  EXPECT_EQ(json_array_size(json_object_get(stream, "size")), 31U);
  const json_t* reported = json_object_get(stream, "reported");
  ASSERT_EQ(json_array_size(reported), 1U);
  EXPECT_EQ(json_integer_value(json_array_get(reported, 0)), 30);
  EXPECT_EQ(json_array_size(json_object_get(root.get(), "anomalies")), 1U);
  EXPECT_EQ(json_array_size(json_object_get(root.get(), "incidents")), 1U);
  EXPECT_EQ(json_array_size(json_object_get(root.get(), "learning")), 1U);
  EXPECT_TRUE(json_is_false(json_object_get(root.get(), "shortened")));
  EXPECT_EQ(say({"report", "--html", target(), "--days", "90"}).status, 0);
  EXPECT_EQ(json_array_size(json_object_get(data().get(), "anomalies")), 2U);
}

TEST_F(Report, SaysHowManyAnomaliesItLeavesOut) {
  anomaly({}, 3, {});
  sql("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20004) "
      "INSERT INTO ANOMALY_DATA SELECT ANOMALY_UNIQUE_ID || i, ANOMALY_DETAILS, PROCESSED, "
      "DETECTION_KEY, CLIENT, DETECTION_TIME FROM ANOMALY_DATA, n");
  const Said said = say({"report", "--html", target()});
  EXPECT_TRUE(said.out.starts_with(target() + ": 0 clients, 20,005 anomalies, ")) << said.out;
  EXPECT_EQ(json_array_size(json_object_get(data().get(), "anomalies")), 20000U);
  EXPECT_EQ(json_integer_value(json_object_get(data().get(), "anomalies_left_out")), 5);
}

TEST_F(Report, HostileNamesStayText) {
  const std::string name = "</script><img src=x onerror=alert(1)>\"'\n\x1B[2J\xFF";
  history({.client = name, .policy = name, .schedule = name}, 5);
  EXPECT_EQ(say({"report", "--html", target()}).status, 0);
  const std::string page = test::read_file(target());
  EXPECT_EQ(page.find("<img"), std::string::npos);
  EXPECT_EQ(count(page, "</script>"), 4U);
  EXPECT_NE(data(), nullptr);
}

TEST_F(Report, OfAnEmptyDatabase) {
  EXPECT_EQ(say({"report", "--html", target(), "--json"}).status, 0);
  EXPECT_EQ(json_array_size(json_object_get(data().get(), "clients")), 0U);
}

TEST_F(Report, NeedsAFile) { EXPECT_EQ(say({"report"}).status, 2); }

}  // namespace
}  // namespace corvane::ctl
