#include "embedded_host/https_server.h"

#include <httplib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <system_error>
#include <thread>

#include "embedded_host/access_log.h"
#include "embedded_host/connection_guard.h"
#include "embedded_host/fault.h"
#include "embedded_host/tls_context.h"
#include "embedded_host/worker_pool.h"

namespace corvane::host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMaxBody = std::size_t{1} << 20;
constexpr std::size_t kMaxWaiting = 256;
constexpr std::size_t kMaxRequestsPerConnection = 10'000'000;
constexpr int kKeepAliveTimeOuts = 30;
constexpr std::chrono::seconds kAnswerTime{300};
constexpr std::chrono::milliseconds kSweepInterval{100};
constexpr const char* kJson = "application/json";

// The request that this thread is answering.
struct CurrentRequest {
  Clock::time_point begin = Clock::now();
  bool break_off = false;  // after the answer, since the rest of the request was not read
};
thread_local CurrentRequest current_request;

bool has_body(const std::string& method) {
  return method == "POST" || method == "PUT" || method == "PATCH" || method == "DELETE";
}

// cpp-httplib's handle of the pool, which it would otherwise own.
class PoolFront : public httplib::TaskQueue {
 public:
  explicit PoolFront(WorkerPool& pool) : pool_(pool) {}
  void enqueue(std::function<void()> task) override { pool_.enqueue(std::move(task)); }
  void shutdown() override {}

 private:
  WorkerPool& pool_;
};

// The body of answers that cpp-httplib generates.
httplib::Server::HandlerResponse explain_failure(const httplib::Request& /*request*/,
                                                 httplib::Response& response) {
  if (!response.body.empty()) return httplib::Server::HandlerResponse::Unhandled;
  const char* reason =
      response.status == 414 ? "the path is too long" : "the request cannot be parsed";
  response.set_content(error_reply(response.status, reason).body, kJson);
  return httplib::Server::HandlerResponse::Handled;
}

void reuse_address(socket_t socket) {
  // Not SO_REUSEPORT, cpp-httplib's default, which lets two servers share a port unnoticed.
  const int on = 1;
  ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

}  // namespace

class HttpsServer::Impl {
 public:
  Impl(const HttpsOptions& options, WebService& service, std::function<std::int64_t()> now,
       std::atomic<bool>& stopping)
      : service_(service),
        now_(std::move(now)),
        stopping_(stopping),
        guard_({.reading = std::chrono::seconds(options.time_out_seconds)}),
        access_log_(options.access_log),
        pool_(options.threads, kMaxWaiting) {
    if (!options.fault_file.empty()) faults_ = std::make_unique<FaultFile>(options.fault_file);
    std::string wrong;
    server_ = std::make_unique<httplib::SSLServer>([&](SSL_CTX& context) {
      wrong = set_up_tls(context, options.credentials);
      guard_.attach(&context);
      return wrong.empty();
    });
    if (!server_->is_valid()) throw ServerFailure(wrong);
    set_limits(options.time_out_seconds);
    set_handlers();
    bind(options);
    listener_ = std::thread([this] { listen(); });
    sweeper_ = std::thread([this] { sweep(); });
    while (!server_->is_running() && !stopping_) std::this_thread::yield();
  }

  ~Impl() {
    stopping_ = true;
    guard_.close_all();
    pool_.release();
    server_->stop();
    listener_.join();
    sweeper_.join();
  }

  int port() const { return port_; }

 private:
  void set_limits(int time_out_seconds) {
    server_->new_task_queue = [this] { return new PoolFront(pool_); };
    server_->set_socket_options(reuse_address);
    server_->set_tcp_nodelay(true);
    server_->set_keep_alive_max_count(kMaxRequestsPerConnection);
    server_->set_keep_alive_timeout(std::time_t{time_out_seconds} * kKeepAliveTimeOuts);
    server_->set_read_timeout(time_out_seconds);
    server_->set_write_timeout(time_out_seconds);
    server_->set_payload_max_length(kMaxBody);
  }

  void set_handlers() {
    server_->set_pre_routing_handler(
        [this](const httplib::Request& request, httplib::Response& response) {
          current_request = {};
          guard_.header_read(request.ssl);
          // A server may ignore a Range header, and this one always does: cpp-httplib would build
          // an answer of any size from a header with many ranges.
          const_cast<httplib::Request&>(request).ranges.clear();
          if (has_body(request.method)) return httplib::Server::HandlerResponse::Unhandled;
          respond(request, {}, response);
          return httplib::Server::HandlerResponse::Handled;
        });
    const auto with_body = [this](const httplib::Request& request, httplib::Response& response,
                                  const httplib::ContentReader& reader) {
      respond_to_body(request, response, reader);
    };
    server_->Post(".*", with_body);
    server_->Put(".*", with_body);
    server_->Patch(".*", with_body);
    server_->Delete(".*", with_body);
    server_->set_error_handler(httplib::Server::HandlerWithResponse(explain_failure));
    server_->set_logger([this](const httplib::Request& request, const httplib::Response& response) {
      answered(request, response);
    });
  }

  void bind(const HttpsOptions& options) {
    errno = 0;
    if (options.port == 0) {
      port_ = server_->bind_to_any_port(options.address);
    } else {
      port_ = server_->bind_to_port(options.address, options.port) ? options.port : -1;
    }
    if (port_ < 0) {
      throw ServerFailure("cannot listen on " + options.address + " port " +
                          std::to_string(options.port) + ": " +
                          (errno != 0 ? std::strerror(errno) : "no such address"));
    }
  }

  void listen() {
    server_->listen_after_bind();
    if (stopping_) return;
    // Accepting failed for good: end the process, which waits for a signal.
    stopping_ = true;
    ::kill(::getpid(), SIGTERM);
  }

  void sweep() {
    while (!stopping_) {
      guard_.sweep(Clock::now(), pool_.has_waiting());
      std::this_thread::sleep_for(kSweepInterval);
    }
  }

  void respond_to_body(const httplib::Request& request, httplib::Response& response,
                       const httplib::ContentReader& reader) {
    if (request.is_multipart_form_data()) {
      current_request.break_off = true;
      return send(error_reply(415, "the body must be JSON"), response);
    }
    std::string body;
    bool too_large = false;
    const bool read = reader([&](const char* data, std::size_t length) {
      too_large = body.size() + length > kMaxBody;
      if (!too_large) body.append(data, length);
      return !too_large;
    });
    if (read) return respond(request, std::move(body), response);
    current_request.break_off = true;
    too_large = too_large || response.status == 413;
    send(error_reply(too_large ? 413 : 400,
                     too_large ? "the body is too large" : "the body cannot be read"),
         response);
  }

  void respond(const httplib::Request& request, std::string body, httplib::Response& response) {
    guard_.answering(request.ssl, kAnswerTime);
    const ClientType client = client_type(request.ssl);
    std::optional<Fault> fault;
    try {
      if (faults_ && service_.accepts(client)) fault = faults_->next(request.path);
    } catch (const BadFaultFile& error) {
      return send(error_reply(500, error.what()), response);
    }
    WebReply reply;
    if (!fault || fault->action != FaultAction::kStatus) {
      reply = service_.answer({request.method, request.target, std::move(body), client}, now_());
    }
    if (!fault) return send(reply, response);
    apply_fault(*fault, reply);
    if (fault->action == FaultAction::kHang)
      hang(request.ssl, std::chrono::seconds(fault->argument));
    if (fault->action == FaultAction::kCut) return send_half(reply, response);
    send(reply, response);
  }

  static void send(const WebReply& reply, httplib::Response& response) {
    response.status = reply.status;
    if (!reply.allow.empty()) response.set_header("Allow", reply.allow);
    response.set_content(reply.body, kJson);
  }

  static void send_half(const WebReply& reply, httplib::Response& response) {
    response.status = reply.status;
    response.set_content_provider(
        reply.body.size(), kJson,
        [body = reply.body](std::size_t, std::size_t, httplib::DataSink& sink) {
          sink.write(body.data(), body.size() / 2);
          return false;
        });
  }

  void hang(const SSL* connection, std::chrono::seconds time) {
    guard_.answering(connection, time + kAnswerTime);
    const auto end = Clock::now() + time;
    while (Clock::now() < end && !stopping_)
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }

  void answered(const httplib::Request& request, const httplib::Response& response) {
    // A request without a connection could not be parsed. Where the next one would begin is not
    // known, so the connection ends.
    const bool unreadable = request.ssl == nullptr;
    const SSL* connection = unreadable ? ConnectionGuard::current() : request.ssl;
    const auto duration = Clock::now() - current_request.begin;
    access_log_.write(
        {.client =
             unreadable ? "-" : request.remote_addr + ":" + std::to_string(request.remote_port),
         .certificate = client_type_name(client_type(connection)),
         .method = request.method,
         .target = request.target,
         .status = response.status,
         .bytes = response.body.size(),
         .duration = std::chrono::duration_cast<std::chrono::milliseconds>(duration)});
    if (connection != nullptr) {
      if (unreadable || current_request.break_off) ::shutdown(SSL_get_fd(connection), SHUT_RDWR);
      guard_.idle(connection);
    }
    current_request = {};  // the next request may fail before it sets its own
  }

  WebService& service_;
  std::function<std::int64_t()> now_;
  std::atomic<bool>& stopping_;
  ConnectionGuard guard_;
  AccessLog access_log_;
  std::unique_ptr<FaultFile> faults_;
  std::unique_ptr<httplib::SSLServer> server_;
  WorkerPool pool_;  // before the server it works for: its threads end first
  std::thread listener_;
  std::thread sweeper_;
  int port_ = -1;
};

HttpsServer::HttpsServer(const HttpsOptions& options, WebService& service,
                         std::function<std::int64_t()> now, std::atomic<bool>& stopping) try
    : impl_(std::make_unique<Impl>(options, service, std::move(now), stopping)) {
} catch (const std::system_error& error) {
  throw ServerFailure(error.what());
}

HttpsServer::~HttpsServer() = default;

int HttpsServer::port() const { return impl_->port(); }

}  // namespace corvane::host
