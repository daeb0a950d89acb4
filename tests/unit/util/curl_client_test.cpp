#include "util/curl_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/fakes/platform_fake_test.h"

namespace {

using corvane::fake::HttpAnswer;
using corvane::fake::HttpRequest;
using corvane::fake::log_lines;
using corvane::fake::LogLine;
using ::testing::ElementsAre;

constexpr char kExecute[] = "CurlClient::execute";
constexpr char kProcess[] = "CurlClient::process_curl_response";
constexpr char kSend[] = "CurlClient::send_curl_request";

static_assert(std::has_virtual_destructor_v<CVClientCURL>);

const LogLine kSucceeded{4, kProcess, "\nAPI execution succeeded \n"};

HttpAnswer answer(long status, const std::string& body = "") { return {0, status, body}; }

// The status and the body of a transfer that broke are no answer.
HttpAnswer broken(int result) { return {result, 200, "half"}; }

LogLine refused(long status) {
  return {16, kProcess, "\nAPI execution failed. Response Code = " + std::to_string(status)};
}

LogLine transport_error(int result) {
  return {
      16, kProcess,
      "\nError occurred while performing curl operation. Return code = " + std::to_string(result)};
}

// A client whose own certificate type is the service's.
class ServiceCertificateClient : public CurlClient {
 public:
  ServiceCertificateClient() : CurlClient("server", "path", REST_GET, "") {
    cert_type_ = CERT_TYPE_SERVICE;
  }
};

class CurlClientTest : public PlatformFake {
 protected:
  CurlClient client_{"master01.example.com", "corvane/admin/jobs?page[offset]=0", REST_GET,
                     "a body"};
};

TEST_F(CurlClientTest, ConstructionDoesNoInputOrOutput) {
  EXPECT_EQ(client_.get_response(), "");
  EXPECT_EQ(client_.getCertType(), 1);
  EXPECT_EQ(fake.most_clients, 0);
  EXPECT_TRUE(fake.requests.empty());
  EXPECT_THAT(log_lines(), ElementsAre());
}

TEST_F(CurlClientTest, CommandTypesAndCertificateTypesHaveTheirNumbers) {
  EXPECT_EQ(REST_GET, 0);
  EXPECT_EQ(REST_POST, 1);
  EXPECT_EQ(REST_PATCH, 2);
  EXPECT_EQ(REST_DELETE, 3);
  EXPECT_EQ(CERT_TYPE_OF_CLIENT, 0);
  EXPECT_EQ(CERT_TYPE_HOST, 1);
  EXPECT_EQ(CERT_TYPE_SERVICE, 2);
  EXPECT_EQ(sizeof(RESTCommandType), 4u);
  EXPECT_EQ(sizeof(cert_type), 4u);
}

TEST_F(CurlClientTest, RequestGoesToPort1556WithHostCertificateSession1AndTimeOut300) {
  fake.answers.push_back(answer(200, "{}"));
  EXPECT_EQ(client_.execute(), 0);
  ASSERT_EQ(fake.requests.size(), 1u);
  const HttpRequest& request = fake.requests[0];
  EXPECT_EQ(request.server, "master01.example.com");
  EXPECT_EQ(request.port, 1556);
  EXPECT_EQ(request.certificate, 1);
  EXPECT_EQ(request.session, 1);
  EXPECT_EQ(request.tokens, nullptr);
  EXPECT_EQ(request.timeout_seconds, 300);
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.path, "corvane/admin/jobs?page[offset]=0");
  EXPECT_EQ(request.body, "");
  EXPECT_EQ(client_.get_response(), "{}");
  EXPECT_THAT(log_lines(), ElementsAre(kSucceeded));
}

TEST_F(CurlClientTest, CommandTypesAreFourRequestOperations) {
  fake.answers.resize(4);
  std::vector<std::unique_ptr<CurlClient>> clients;
  for (const auto type : {REST_GET, REST_POST, REST_PATCH, REST_DELETE}) {
    clients.push_back(std::make_unique<CurlClient>("server", "path", type, "body"));
    EXPECT_EQ(clients.back()->execute(), 0);
  }
  std::vector<std::string> seen;
  std::vector<CurlClient*> callers;
  for (const HttpRequest& request : fake.requests) {
    seen.push_back(request.method + " " + request.path + " " + request.body);
    callers.push_back(request.caller);
  }
  EXPECT_THAT(seen, ElementsAre("GET path ", "POST path body", "PATCH path body", "DELETE path "));
  EXPECT_THAT(callers, ElementsAre(nullptr, clients[1].get(), clients[2].get(), nullptr));
}

TEST_F(CurlClientTest, UnknownCommandTypeReturnsMinus1AndThenLogsTheTransportLine) {
  CurlClient unknown("server", "path", static_cast<RESTCommandType>(4), "");
  EXPECT_EQ(unknown.execute(), -1);
  EXPECT_TRUE(fake.requests.empty());
  EXPECT_EQ(unknown.get_response(), "");
  EXPECT_THAT(log_lines(), ElementsAre(LogLine{16, kSend, "Invalid Command type received"},
                                       transport_error(-1)));
}

TEST_F(CurlClientTest, NullClientGivesMinus1WithoutALogLine) {
  EXPECT_EQ(client_.send_curl_request(nullptr), -1);
  EXPECT_THAT(log_lines(), ElementsAre());
}

TEST_F(CurlClientTest, NullClientWithAResultIsJudgedByTheResult) {
  EXPECT_EQ(client_.process_curl_response(nullptr, -1), -1);
  EXPECT_THAT(log_lines(), ElementsAre(transport_error(-1)));
}

TEST_F(CurlClientTest, Statuses200To206AreSuccess) {
  for (long status = 200; status <= 206; ++status) {
    fake.answers.push_back(answer(status));
    EXPECT_EQ(client_.execute(), 0) << status;
    EXPECT_EQ(log_lines().back(), kSucceeded) << status;
  }
}

TEST_F(CurlClientTest, Status206IsSuccessAnd207Failure) {
  fake.answers.push_back(answer(206));
  EXPECT_EQ(client_.execute(), 0);
  fake.answers.push_back(answer(207));
  EXPECT_EQ(client_.execute(), 207);
  EXPECT_THAT(log_lines(), ElementsAre(kSucceeded, refused(207)));
}

TEST_F(CurlClientTest, OtherStatusesAreReturnedAndTheBodyIsKept) {
  for (const long status : {0L, 100L, 199L, 301L, 400L, 403L, 404L, 500L, 503L}) {
    fake.answers.push_back(answer(status, "why " + std::to_string(status)));
    EXPECT_EQ(client_.execute(), status);
    EXPECT_EQ(log_lines().back(), refused(status));
    EXPECT_EQ(client_.get_response(), "why " + std::to_string(status));
  }
  EXPECT_EQ(fake.requests.size(), 9u) << "none of these is tried again";
}

TEST_F(CurlClientTest, TransportErrorIsReturned) {
  fake.answers.push_back(broken(28));
  EXPECT_EQ(client_.execute(), 28);
  EXPECT_EQ(fake.requests.size(), 1u);
  EXPECT_THAT(log_lines(), ElementsAre(transport_error(28)));
}

TEST_F(CurlClientTest, A401WithCertificateType1IsRetriedExactlyOnceWithType2) {
  fake.answers.push_back(answer(401, "who are you"));
  fake.answers.push_back(answer(200, "welcome"));
  EXPECT_EQ(client_.execute(), 0);
  ASSERT_EQ(fake.requests.size(), 2u);
  EXPECT_EQ(fake.requests[0].certificate, 1);
  EXPECT_EQ(fake.requests[1].certificate, 2);
  EXPECT_EQ(fake.requests[1].timeout_seconds, 300);
  EXPECT_EQ(fake.requests[1].path, fake.requests[0].path);
  EXPECT_EQ(client_.get_response(), "welcome");
  EXPECT_EQ(client_.getCertType(), 1);
  EXPECT_THAT(log_lines(), ElementsAre(refused(401)));
}

TEST_F(CurlClientTest, ASecond401IsNotRetriedAgainAndCountsAsSuccess) {
  fake.answers.push_back(answer(401));
  fake.answers.push_back(answer(401, "still unknown"));
  EXPECT_EQ(client_.execute(), 0);
  EXPECT_EQ(fake.requests.size(), 2u);
  EXPECT_EQ(client_.get_response(), "still unknown");
  EXPECT_THAT(log_lines(),
              ElementsAre(refused(401),
                          LogLine{16, kExecute, "\nAPI execution failed. Response Code = 401"}));
}

TEST_F(CurlClientTest, A401WithAnotherCertificateTypeIsNotRetried) {
  ServiceCertificateClient client;
  fake.answers.push_back(answer(401, "no"));
  EXPECT_EQ(client.execute(), 401);
  ASSERT_EQ(fake.requests.size(), 1u);
  EXPECT_EQ(fake.requests[0].certificate, 2) << "the client's own type";
  EXPECT_EQ(client.get_response(), "no");
}

TEST_F(CurlClientTest, ARetriedRequestAnsweredWith500Returns0AndItsBody) {
  fake.answers.push_back(answer(401));
  fake.answers.push_back(answer(500, "internal"));
  EXPECT_EQ(client_.execute(), 0);
  EXPECT_EQ(client_.get_response(), "internal");
  EXPECT_THAT(log_lines(),
              ElementsAre(refused(401),
                          LogLine{16, kExecute, "\nAPI execution failed. Response Code = 500"}));
}

TEST_F(CurlClientTest, ARetryAnsweredWith207IsLoggedAsFailedAndWith206IsNot) {
  fake.answers = {answer(401), answer(207), answer(401), answer(206)};
  EXPECT_EQ(client_.execute(), 0);
  EXPECT_EQ(client_.execute(), 0);
  EXPECT_THAT(log_lines(),
              ElementsAre(refused(401),
                          LogLine{16, kExecute, "\nAPI execution failed. Response Code = 207"},
                          refused(401)));
}

TEST_F(CurlClientTest, ATransportErrorOfTheRetryIsLoggedWithATrailingBlank) {
  fake.answers.push_back(answer(401));
  fake.answers.push_back(broken(7));
  EXPECT_EQ(client_.execute(), 7);
  EXPECT_EQ(client_.get_response(), "half") << "what the client holds is handed on";
  EXPECT_THAT(
      log_lines(),
      ElementsAre(refused(401),
                  LogLine{16, kExecute,
                          "\nError occurred while performing curl operation. Return code = 7 "}));
}

TEST_F(CurlClientTest, ATransportResultOf401IsRetriedToo) {
  fake.answers.push_back(broken(401));
  fake.answers.push_back(answer(200, "there"));
  EXPECT_EQ(client_.execute(), 0);
  EXPECT_EQ(client_.get_response(), "there");
  EXPECT_THAT(log_lines(), ElementsAre(transport_error(401)));
}

TEST_F(CurlClientTest, AtMostOneHttpsClientIsAliveAndNoneAfterwards) {
  fake.answers.push_back(answer(401));
  fake.answers.push_back(answer(200));
  client_.execute();
  EXPECT_EQ(fake.most_clients, 1);
  EXPECT_EQ(fake.clients, 0);
}

TEST_F(CurlClientTest, GetLibCurlMakesAClientThatTheCallerOwns) {
  const std::unique_ptr<CVClientCURL> own(client_.get_lib_curl(CERT_TYPE_OF_CLIENT));
  const std::unique_ptr<CVClientCURL> service(client_.get_lib_curl(CERT_TYPE_SERVICE));
  EXPECT_EQ(fake.clients, 2);
  fake.answers.resize(2);
  EXPECT_EQ(client_.send_curl_request(own.get()), 0);
  EXPECT_EQ(client_.send_curl_request(service.get()), 0);
  EXPECT_EQ(fake.requests[0].certificate, 1);
  EXPECT_EQ(fake.requests[1].certificate, 2);
  EXPECT_EQ(client_.process_curl_response(own.get(), 0), 0);
}

}  // namespace
