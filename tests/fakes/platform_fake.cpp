#include "tests/fakes/platform_fake.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <utility>

#include "platform/answer_filter.h"
#include "platform/clock.h"
#include "platform/debug_log.h"
#include "platform/host_product.h"
#include "platform/process_handler.h"

namespace corvane::fake {

namespace {

std::recursive_mutex& mutex() {
  static std::recursive_mutex the_mutex;
  return the_mutex;
}

// Copies `text` as the platform's functions do: whole, or not at all.
int copy_text(const std::optional<std::string>& text, char* buffer, std::size_t size) {
  if (!text || text->size() >= size) {
    if (size > 0) buffer[0] = '\0';
    return -1;
  }
  std::memcpy(buffer, text->c_str(), text->size() + 1);
  return 0;
}

HttpAnswer answer_to(const HttpRequest& request) {
  std::function<HttpAnswer(const HttpRequest&)> handler;
  {
    const auto guard = lock();
    State& fake = state();
    fake.requests.push_back(request);
    if (!fake.answers.empty()) {
      HttpAnswer answer = std::move(fake.answers.front());
      fake.answers.pop_front();
      return answer;
    }
    handler = fake.handler;
  }
  return handler ? handler(request) : HttpAnswer{.result = kNoAnswerLeft, .status = 0, .body = ""};
}

// What get_master_config_ptr points to; it lives until the next read.
struct MasterRecord {
  std::string host_name;
  std::vector<std::string> names;
  std::vector<const char*> servers;
  MasterConfig config{};
};

MasterRecord& master_record() {
  static MasterRecord record;
  return record;
}

}  // namespace

State& state() {
  static State the_state;
  return the_state;
}

std::unique_lock<std::recursive_mutex> lock() { return std::unique_lock(mutex()); }

void reset() {
  const auto guard = lock();
  state() = State{};
  master_record() = MasterRecord{};
}

std::vector<LogLine> log_lines() {
  const auto guard = lock();
  return state().log;
}

std::vector<LogLine> log_lines(int level) {
  std::vector<LogLine> lines = log_lines();
  std::erase_if(lines, [level](const LogLine& line) { return line.level != level; });
  return lines;
}

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << '{' << line.level << ", \"" << line.tag << "\", \"" << line.text << "\"}";
}

}  // namespace corvane::fake

using corvane::fake::state;

// Debug log.

int open_debug_log(const char* directory, const char* program, const char* name, int mode,
                   int* status) {
  const auto guard = corvane::fake::lock();
  state().log_openings.push_back({directory, program, name, mode});
  if (state().log_status >= 0) return state().log_descriptor;
  *status = state().log_status;
  return -1;
}

void logmsg(int level, const char* tag, const char* text) {
  const auto guard = corvane::fake::lock();
  state().log.push_back({level, tag, text});
}

void logmsgf(int level, const char* tag, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::va_list measured;
  va_copy(measured, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, measured);
  va_end(measured);
  std::string text(static_cast<std::size_t>(std::max(length, 0)), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  va_end(arguments);
  logmsg(level, tag, text.c_str());
}

// HTTPS client.

struct CVClientCURL::Impl {
  corvane::fake::HttpRequest request;  // all but method, path and body
  corvane::fake::HttpAnswer answer{.result = 0, .status = 0, .body = ""};

  int perform(const char* method, const std::string& path, const std::string& body,
              CurlClient* caller) {
    corvane::fake::HttpRequest made = request;
    made.method = method;
    made.path = path;
    made.body = body;
    made.caller = caller;
    answer = corvane::fake::answer_to(made);
    const auto guard = corvane::fake::lock();
    if (state().answer_filter) answer.body = state().answer_filter(answer.body);
    return answer.result;
  }
};

CVClientCURL::CVClientCURL(const std::string& server, int port, cert_type certificate,
                           CVCurlSessionType session, CVTokenManager* token_manager,
                           const std::string&, bool, bool, bool, const std::string&,
                           const std::string&, const std::string&, const std::string&,
                           const std::string&, const std::string&, bool, bool&, const std::string&,
                           int)
    : impl_(std::make_unique<Impl>()) {
  impl_->request.server = server;
  impl_->request.port = port;
  impl_->request.certificate = certificate;
  impl_->request.session = session;
  impl_->request.tokens = token_manager;
  const auto guard = corvane::fake::lock();
  state().most_clients = std::max(state().most_clients, ++state().clients);
}

CVClientCURL::~CVClientCURL() {
  const auto guard = corvane::fake::lock();
  --state().clients;
}

void CVClientCURL::setupCurlOperationTimeout(long seconds) {
  impl_->request.timeout_seconds = seconds;
}

int CVClientCURL::get(const std::string& path) { return impl_->perform("GET", path, "", nullptr); }

int CVClientCURL::post(const std::string& path, const std::string& body, CurlClient* caller) {
  return impl_->perform("POST", path, body, caller);
}

int CVClientCURL::patch(const std::string& path, const std::string& body, CurlClient* caller) {
  return impl_->perform("PATCH", path, body, caller);
}

int CVClientCURL::remove(const std::string& path) {
  return impl_->perform("DELETE", path, "", nullptr);
}

long CVClientCURL::http_status() const { return impl_->answer.status; }

const std::string& CVClientCURL::response_body() const { return impl_->answer.body; }

void corvane::set_answer_filter(std::function<std::string(std::string_view)> filter) {
  const auto guard = corvane::fake::lock();
  state().answer_filter = std::move(filter);
}

// Process table.

ProcessHandler::ProcessHandler(std::string name) : name_(std::move(name)) {}

std::vector<pid_t> ProcessHandler::getProcessIDs() const {
  std::function<void(const std::string&, int)> on_look;
  int look = 0;
  {
    const auto guard = corvane::fake::lock();
    look = ++state().looks[name_];
    on_look = state().on_look;
  }
  if (on_look) on_look(name_, look);
  const auto guard = corvane::fake::lock();
  const auto found = state().processes.find(name_);
  return found == state().processes.end() ? std::vector<pid_t>{} : found->second;
}

void ProcessHandler::terminate() {
  const auto guard = corvane::fake::lock();
  state().terminated.push_back(name_);
  if (!state().survives_terminate.contains(name_)) state().processes.erase(name_);
}

// Host product.

int getCVInstallDir(char* buffer, std::size_t size) {
  const auto guard = corvane::fake::lock();
  return corvane::fake::copy_text(state().install_dir, buffer, size);
}

int CV_read_master_config() {
  const auto guard = corvane::fake::lock();
  corvane::fake::MasterRecord& record = corvane::fake::master_record();
  record.host_name = state().host_name.value_or("");
  record.names = state().servers.value_or(std::vector<std::string>{});
  record.servers.clear();
  for (const std::string& name : record.names) record.servers.push_back(name.c_str());
  record.servers.push_back(nullptr);
  record.config = {1, record.host_name.c_str(), state().servers ? record.servers.data() : nullptr};
  return state().master_config_result;
}

const MasterConfig* get_master_config_ptr() {
  const auto guard = corvane::fake::lock();
  const bool missing = state().master_record_missing || state().master_config_result != 0;
  return missing ? nullptr : &corvane::fake::master_record().config;
}

int qp_gethostname(char* buffer, std::size_t size) {
  const auto guard = corvane::fake::lock();
  return corvane::fake::copy_text(state().host_name, buffer, size);
}

int pluma_is_master_server(const char* host_name) {
  const auto guard = corvane::fake::lock();
  return state().master_host == host_name ? 1 : 0;
}

void pluma_set_corvane_daemon(int is_daemon) {
  const auto guard = corvane::fake::lock();
  state().daemon_mark = is_daemon;
}

int enable_process_for_service_account() {
  const auto guard = corvane::fake::lock();
  ++state().service_account_calls;
  return 0;
}

// Clock.

std::time_t corvane::now() {
  const auto guard = fake::lock();
  return fake::state().now;
}

unsigned corvane::sleep(unsigned seconds) {
  std::function<void(unsigned)> on_sleep;
  {
    const auto guard = fake::lock();
    fake::state().now += static_cast<std::time_t>(seconds);
    fake::state().sleeps.push_back(seconds);
    on_sleep = fake::state().on_sleep;
  }
  if (on_sleep) on_sleep(seconds);
  return 0;
}
