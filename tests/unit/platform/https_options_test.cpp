#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <map>
#include <string>

#include "platform/https_connection.h"
#include "platform/https_session.h"

namespace {

std::map<CURLoption, long> numbers;  // the options as they were set last
std::map<CURLoption, std::string> texts;

}  // namespace

extern "C" {

CURLcode __real_curl_easy_setopt(CURL* handle, CURLoption option, ...);

CURLcode __wrap_curl_easy_setopt(CURL* handle, CURLoption option, ...) {
  static_assert(sizeof(long) == sizeof(void*) && sizeof(long) == sizeof(curl_off_t));
  std::va_list arguments;
  va_start(arguments, option);
  void* const value = va_arg(arguments, void*);
  va_end(arguments);
  if (option < CURLOPTTYPE_OBJECTPOINT) numbers[option] = reinterpret_cast<long>(value);
  if (option == CURLOPT_PROTOCOLS_STR) texts[option] = static_cast<const char*>(value);
  return __real_curl_easy_setopt(handle, option, value);
}

}  // extern "C"

namespace corvane {
namespace {

class HttpsOptions : public ::testing::Test {
 protected:
  HttpsOptions() {
    numbers.clear();
    texts.clear();
  }

  // Nothing listens at this port.
  const HttpsEndpoint endpoint_{
      .server = "127.0.0.1", .port = 1, .credentials = {}, .connect_to = {}};

  void request(long timeout_seconds) {
    HttpsAnswer answer;
    HttpsConnection(endpoint_, stamp_of(endpoint_.credentials))
        .perform({"GET", "path", nullptr, timeout_seconds, 1000}, answer);
  }
};

TEST_F(HttpsOptions, TheServerIsVerifiedOverTls12OrLaterWithoutDetours) {
  request(10);
  EXPECT_EQ(numbers[CURLOPT_SSL_VERIFYPEER], 1);
  EXPECT_EQ(numbers[CURLOPT_SSL_VERIFYHOST], 2);
  EXPECT_EQ(numbers[CURLOPT_SSLVERSION], CURL_SSLVERSION_TLSv1_2);
  EXPECT_EQ(texts[CURLOPT_PROTOCOLS_STR], "https");
  ASSERT_TRUE(numbers.contains(CURLOPT_FOLLOWLOCATION));
  EXPECT_EQ(numbers[CURLOPT_FOLLOWLOCATION], 0);
  EXPECT_EQ(numbers[CURLOPT_NOSIGNAL], 1);
}

TEST_F(HttpsOptions, ConnectingMayTakeThirtySecondsOfTheTransfers) {
  for (const long seconds : {29L, 30L, 31L, 86400L}) {
    request(seconds);
    EXPECT_EQ(numbers[CURLOPT_TIMEOUT], seconds);
    EXPECT_EQ(numbers[CURLOPT_CONNECTTIMEOUT], std::min(seconds, 30L));
  }
}

TEST_F(HttpsOptions, ATransferMayTakeAsLongAsMillisecondsCanBeCounted) {
  constexpr long kMost = INT_MAX / 1000;
  request(kMost);
  EXPECT_EQ(numbers[CURLOPT_TIMEOUT], kMost);
  request(kMost + 1);
  EXPECT_EQ(numbers[CURLOPT_TIMEOUT], kMost);
}

TEST_F(HttpsOptions, ASessionsTransfersMayTakeFiveMinutesUnlessToldOtherwise) {
  HttpsSession session(endpoint_);
  session.request("GET", "path");
  EXPECT_EQ(numbers[CURLOPT_TIMEOUT], 300);
  session.set_timeout(1);
  session.request("GET", "path");
  EXPECT_EQ(numbers[CURLOPT_TIMEOUT], 1);
  for (const long none : {0L, -1L}) {
    session.set_timeout(none);
    session.request("GET", "path");
    EXPECT_EQ(numbers[CURLOPT_TIMEOUT], 300);
  }
}

}  // namespace
}  // namespace corvane
