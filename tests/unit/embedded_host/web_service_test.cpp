#include "embedded_host/web_service.h"

#include <gmock/gmock.h>

#include <thread>

#include "tests/unit/embedded_host/catalog_world.h"

namespace corvane::host {
namespace {

using test::backup_line;
using test::CatalogWorld;
using test::ids;
using test::kDay;
using ::testing::ElementsAre;

class WebServiceTest : public ::testing::Test {
 protected:
  WebServiceTest() { world_.load({backup_line(1, kDay, 10), backup_line(2, kDay + 100, 1000)}); }

  WebReply answer(const std::string& method, const std::string& target,
                  const std::string& body = "") {
    if (!service_) service_.emplace(world_.path, AcceptedClients::kBoth, 0, stopping_);
    return service_->answer({method, target, body, ClientType::kHost}, kDay + 500);
  }

  // "STATUS REASON (WHERE)" of an error's reply.
  static std::string complaint(const WebReply& reply) {
    const JsonPtr root = test::parse(reply.body);
    const json_t* error = json_object_get(root.get(), "error");
    const char* reason = json_string_value(json_object_get(error, "reason"));
    const char* where = json_string_value(json_object_get(error, "where"));
    EXPECT_EQ(json_integer_value(json_object_get(error, "status")), reply.status) << reply.body;
    return std::to_string(reply.status) + " " + (reason ? reason : "") +
           (where ? " (" + std::string(where) + ")" : "");
  }

  CatalogWorld world_;
  std::atomic<bool> stopping_ = false;
  std::optional<WebService> service_;
};

TEST_F(WebServiceTest, AnswersTheCollections) {
  const WebReply jobs = answer("GET", "/corvane/admin/jobs?sort=startTime");
  EXPECT_EQ(jobs.status, 200);
  EXPECT_THAT(ids(jobs.body), ElementsAre("1", "2"));
  EXPECT_THAT(ids(answer("GET", "/corvane/catalog/images").body), ElementsAre("web01_1769817600"));
  EXPECT_THAT(ids(answer("GET", "/corvane/wui/anomalies").body), ElementsAre());
  EXPECT_EQ(answer("HEAD", "/corvane/admin/jobs").status, 200);
}

TEST_F(WebServiceTest, AnswersARequestAsAGatherSendsIt) {
  EXPECT_THAT(
      ids(answer("GET",
                 "/corvane/admin/jobs?page%5Boffset%5D=0&page%5Blimit%5D=100&sort=-startTime&"
                 "filter=startTime%20ge%202026-01-31T00:00:00.000Z%20and%20endTime%20le%"
                 "202026-01-31T01:00:00.000Z%20and%20(jobType%20eq%20'BACKUP'%20or%20"
                 "jobType%20eq%20'SNAPDUPE'%20or%20jobType%20eq%20'DBBACKUP')")
              .body),
      ElementsAre("2", "1"));
}

TEST_F(WebServiceTest, AnswersASingleImage) {
  const WebReply reply = answer("GET", "/corvane/catalog/images/web01_1769817600");
  EXPECT_EQ(reply.status, 200);
  EXPECT_TRUE(reply.body.starts_with(R"({"data":{"type":"image","id":"web01_1769817600",)"));
  EXPECT_EQ(complaint(answer("GET", "/corvane/catalog/images/web01_1769817700")),
            "404 no such element (web01_1769817700)");
}

TEST_F(WebServiceTest, UnknownPathsAre404) {
  for (const char* target :
       {"/", "/corvane", "/corvane/admin/jobs/", "/corvane/admin/jobs/1", "//corvane/admin/jobs",
        "/corvane/catalog/image", "/corvane/catalog/images/", "corvane/admin/jobs", "", "*",
        "/corvane/catalog/imagesX"}) {
    EXPECT_EQ(answer("GET", target).status, 404) << target;
  }
}

TEST_F(WebServiceTest, WhatIsUnknownIsNamed) {
  answer("POST", "/corvane/wui/anomalies",
         R"({"data":{"type":"anomaly","id":"A1","attributes":{}}})");
  EXPECT_EQ(complaint(answer("GET", "/corvane/wui/anomalies/A1")),
            "404 nothing exists at this path (/corvane/wui/anomalies/A1)");
  EXPECT_EQ(complaint(answer("GET", "/corvane/catalog/images/x")), "404 no such element (x)");
  EXPECT_EQ(answer("POST", "/corvane/catalog/images").allow, "GET, HEAD");
}

TEST_F(WebServiceTest, BadRequestsSayWhatAndWhere) {
  EXPECT_EQ(complaint(answer("GET", "/corvane/admin/jobs?filter=foo%20eq%201")),
            "400 unknown attribute 'foo' (filter, character 1)");
  EXPECT_EQ(complaint(answer("GET", "/corvane/admin/jobs?page[limit]=1001")),
            "400 above 1000 (page[limit])");
  EXPECT_EQ(complaint(answer("GET", "/%zz")),
            "400 '%' without two hexadecimal digits: '%zz' (path)");
  EXPECT_EQ(complaint(answer("GET", "/corvane/admin/jobs?sort=%ff")),
            "400 unknown attribute '\\xff' (sort)");
}

TEST_F(WebServiceTest, OtherMethodsAre405) {
  for (const char* method : {"POST", "PUT", "PATCH", "DELETE", "OPTIONS"}) {
    const WebReply reply = answer(method, "/corvane/admin/jobs");
    EXPECT_EQ(reply.status, 405) << method;
    EXPECT_EQ(reply.allow, "GET, HEAD");
  }
  EXPECT_EQ(answer("DELETE", "/corvane/wui/anomalies").allow, "GET, HEAD, POST");
  EXPECT_EQ(answer("DELETE", "/corvane/nowhere").status, 404);
}

TEST_F(WebServiceTest, AcceptsTheCertificatesItIsToldTo) {
  const auto status = [&](AcceptedClients accepted, ClientType client) {
    WebService service(world_.path, accepted, 0, stopping_);
    return service.answer({"GET", "/corvane/admin/jobs", "", client}, kDay).status;
  };
  EXPECT_EQ(status(AcceptedClients::kBoth, ClientType::kHost), 200);
  EXPECT_EQ(status(AcceptedClients::kBoth, ClientType::kService), 200);
  EXPECT_EQ(status(AcceptedClients::kBoth, ClientType::kUnknown), 401);
  EXPECT_EQ(status(AcceptedClients::kHost, ClientType::kHost), 200);
  EXPECT_EQ(status(AcceptedClients::kHost, ClientType::kService), 401);
  EXPECT_EQ(status(AcceptedClients::kService, ClientType::kHost), 401);
  EXPECT_EQ(status(AcceptedClients::kService, ClientType::kService), 200);
}

TEST_F(WebServiceTest, ARefusedCertificateLearnsNothingElse) {
  WebService service(world_.path, AcceptedClients::kService, 0, stopping_);
  for (const char* target : {"/corvane/admin/jobs", "/nowhere", "/%zz"}) {
    EXPECT_EQ(complaint(service.answer({"GET", target, "", ClientType::kHost}, kDay)),
              "401 certificates of type 'host' are not accepted");
  }
}

TEST_F(WebServiceTest, JobsCloseAfterTheDelay) {
  WebService service(world_.path, AcceptedClients::kBoth, 30, stopping_);
  const auto state_filter = [&](std::int64_t now) {
    return ids(service
                   .answer({"GET", "/corvane/admin/jobs?filter=state%20eq%20'DONE'", "",
                            ClientType::kHost},
                           now)
                   .body);
  };
  EXPECT_THAT(state_filter(kDay + 39), ElementsAre());
  EXPECT_THAT(state_filter(kDay + 40), ElementsAre("1"));
}

TEST_F(WebServiceTest, AReportIsStoredAndReplaced) {
  const std::string first =
      R"({"data": {"type": "anomaly", "id": "A1", "attributes": {"score": 1}}})";
  const WebReply created = answer("POST", "/corvane/wui/anomalies", first);
  EXPECT_EQ(created.status, 201);
  EXPECT_EQ(created.body, R"({"data":{"type":"anomaly","id":"A1","attributes":{"score":1}}})");
  EXPECT_EQ(answer("POST", "/corvane/wui/anomalies",
                   R"({"data": {"type": "anomaly", "id": "A1", "attributes": {"score": 2}}})")
                .status,
            200);
  EXPECT_EQ(answer("POST", "/corvane/wui/anomalies",
                   R"({"data": {"type": "anomaly", "id": 17, "attributes": {}}})")
                .status,
            201);
  EXPECT_EQ(answer("GET", "/corvane/wui/anomalies").body,
            R"({"data":[{"type":"anomaly","id":"A1","attributes":{"score":2}},)"
            R"({"type":"anomaly","id":"17","attributes":{}}],)"
            R"("meta":{"pagination":{"offset":0,"limit":100000,"count":2}}})");
}

TEST_F(WebServiceTest, ABadReportIsRefused) {
  const auto post = [&](const std::string& body) {
    return complaint(answer("POST", "/corvane/wui/anomalies", body));
  };
  EXPECT_THAT(post(""), ::testing::StartsWith("400 not JSON: "));
  EXPECT_THAT(post("{\"data\": \xff"), ::testing::StartsWith("400 not JSON: "));
  EXPECT_EQ(post("[]"), "400 not an object (body, data)");
  EXPECT_EQ(post(R"({"data":[]})"), "400 not an object (body, data)");
  EXPECT_EQ(post(R"({"data":{"type":"anomalyFeedback","id":"A1","attributes":{}}})"),
            "400 not 'anomaly' (body, data.type)");
  EXPECT_EQ(post(R"({"data":{"type":"anomaly","id":"A1"}})"),
            "400 not an object (body, data.attributes)");
  EXPECT_EQ(post(R"({"data":{"type":"anomaly","id":"","attributes":{}}})"),
            "400 neither a text of 1 to 256 bytes nor a whole number (body, data.id)");
  EXPECT_EQ(post(R"({"data":{"type":"anomaly","id":null,"attributes":{}}})"),
            "400 neither a text of 1 to 256 bytes nor a whole number (body, data.id)");
  EXPECT_THAT(post(std::string(500'000, '[')), ::testing::StartsWith("400 not JSON: "));
  EXPECT_THAT(ids(answer("GET", "/corvane/wui/anomalies").body), ElementsAre());
}

TEST_F(WebServiceTest, AnIdHasABound) {
  const auto post = [&](std::size_t bytes) {
    return answer("POST", "/corvane/wui/anomalies",
                  R"({"data":{"type":"anomaly","id":")" + std::string(bytes, 'a') +
                      R"(","attributes":{}}})")
        .status;
  };
  EXPECT_EQ(post(256), 201);
  EXPECT_EQ(post(257), 400);
}

TEST_F(WebServiceTest, AMissingCatalogShowsAtOnce) {
  EXPECT_THROW(WebService(world_.dir("none.db"), AcceptedClients::kBoth, 0, stopping_),
               CatalogError);
}

TEST_F(WebServiceTest, ABrokenCatalogIs500) {
  answer("GET", "/corvane/admin/jobs");
  Connection(world_.path, Connection::Access::kWrite).execute("DROP TABLE backups");
  EXPECT_EQ(complaint(answer("GET", "/corvane/admin/jobs")), "500 no such table: backups");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(complaint(answer("GET", "/corvane/admin/jobs?sort=status")),
              "500 no such table: backups");
  }
}

TEST_F(WebServiceTest, ManyThreadsAreAnswered) {
  answer("GET", "/corvane/admin/jobs");
  std::atomic<int> good = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&, i] {
      for (int k = 0; k < 25; ++k) {
        const std::string id = std::to_string(i) + "_" + std::to_string(k);
        good += answer("POST", "/corvane/wui/anomalies",
                       R"({"data":{"type":"anomaly","id":")" + id + R"(","attributes":{}}})")
                    .status == 201;
        good += ids(answer("GET", "/corvane/admin/jobs").body).size() == 2;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, 400);
  EXPECT_EQ(ids(answer("GET", "/corvane/wui/anomalies").body).size(), 200U);
}

}  // namespace
}  // namespace corvane::host
