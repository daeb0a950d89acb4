// The platform as unit tests want it: linked in place of cv_platform, it keeps what the code under
// test asked of the machine and answers with what the test has set.
//
//   corvane::fake::state().answers.push_back({.status = 200, .body = "{}"});
//   run_the_code();
//   EXPECT_EQ(corvane::fake::log_lines(), (std::vector<LogLine>{{4, "tag", "text"}}));
//
// Every test begins with reset(); the fixture in platform_fake_test.h calls it. Every function of
// the platform may be called from any thread. A test that reads or changes state() while another
// thread runs holds lock() meanwhile. Hooks are called without the lock and may change the state.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <ctime>
#include <deque>
#include <functional>
#include <iosfwd>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/cv_client_curl.h"

namespace corvane::fake {

struct LogLine {
  int level = 0;
  std::string tag;
  std::string text;
  bool operator==(const LogLine&) const = default;
};
std::ostream& operator<<(std::ostream& out, const LogLine& line);

// A call of open_debug_log.
struct LogOpening {
  std::string directory;
  std::string program;
  std::string name;
  int mode = 0;
  bool operator==(const LogOpening&) const = default;
};

struct HttpRequest {
  std::string server;
  int port = 0;
  cert_type certificate = CERT_TYPE_OF_CLIENT;
  CVCurlSessionType session = CURL_SESSION_NONE;
  std::string method;  // "GET", "POST", "PATCH", "DELETE"
  std::string path;
  std::string body;
  long timeout_seconds = 0;      // 0: setupCurlOperationTimeout was not called
  CurlClient* caller = nullptr;  // of POST and PATCH
  CVTokenManager* tokens = nullptr;
};

struct HttpAnswer {
  int result =
      0;  // libcurl's code; when it is not 0, status and body are handed on as they are too
  long status = 200;
  std::string body;
};

// What an exhausted script answers: "could not connect".
inline constexpr int kNoAnswerLeft = 7;

struct State {
  // Debug log.
  std::vector<LogLine> log;
  std::vector<LogOpening> log_openings;
  int log_status = 0;       // negative: open_debug_log fails with it
  int log_descriptor = 33;  // what open_debug_log returns; nothing is open there

  // HTTPS: the answers in order, then the handler if there is one, then kNoAnswerLeft.
  std::deque<HttpAnswer> answers;
  std::function<HttpAnswer(const HttpRequest&)> handler;
  std::vector<HttpRequest> requests;
  int clients = 0;       // CVClientCURL objects alive
  int most_clients = 0;  // at most so many were alive at once
  std::function<std::string(std::string_view)> answer_filter;

  // Process table.
  std::map<std::string, std::vector<pid_t>> processes;
  std::map<std::string, int> looks;  // calls of getProcessIDs by name
  // Called at the start of each getProcessIDs, after it was counted (the first look is 1).
  std::function<void(const std::string& name, int look)> on_look;
  std::vector<std::string> terminated;       // calls of terminate(), in order
  std::set<std::string> survives_terminate;  // names that terminate() leaves running

  // Host product.
  std::optional<std::string> install_dir = "/usr/tessel/";  // absent: getCVInstallDir fails
  int master_config_result = 0;                             // of CV_read_master_config
  bool master_record_missing = false;  // get_master_config_ptr gives null although the read worked
  std::optional<std::vector<std::string>> servers =
      std::vector<std::string>{"master01.example.com"};           // absent: the record has no list
  std::optional<std::string> host_name = "master01.example.com";  // absent: qp_gethostname fails
  std::string master_host = "master01.example.com";  // whom pluma_is_master_server says yes to
  int daemon_mark = 0;
  int service_account_calls = 0;

  // Clock.
  std::time_t now = 1'700'000'000;
  std::vector<unsigned> sleeps;
  // Called at the end of each sleep(), after the clock has moved on.
  std::function<void(unsigned seconds)> on_sleep;
};

State& state();

// Holds off the platform's functions in other threads while a test looks at the state.
std::unique_lock<std::recursive_mutex> lock();

// Everything as in a fresh State. Call it only while no CVClientCURL is alive.
void reset();

// Copies, safe while other threads log.
std::vector<LogLine> log_lines();
std::vector<LogLine> log_lines(int level);

}  // namespace corvane::fake
