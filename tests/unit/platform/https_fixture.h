// A TLS server, credentials for both sides and a debug log, all a test's own.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "platform/debug_log.h"
#include "platform/https_connection.h"
#include "tests/support/scratch_dir.h"
#include "tests/unit/platform/test_certificates.h"
#include "tests/unit/platform/tls_server.h"

namespace corvane::test {

class HttpsFixture : public ::testing::Test {
 protected:
  HttpsFixture() {
    int status = 0;
    open_debug_log(scratch().c_str(), "test", "log", 0600, &status);
  }

  // The server's name is checked, not resolved.
  HttpsEndpoint endpoint(const std::string& name = "master01.example.com",
                         const std::string& certificate = "host") const {
    return {name, server.port(), credentials_in(credentials, certificate), "127.0.0.1"};
  }

  // Puts another certificate (and key) of this name in place.
  void replace_certificate(const std::string& name) const {
    const std::string fresh = scratch("fresh");
    std::filesystem::create_directory(fresh);
    authority.issue(fresh, name, "DNS:" + name);
    for (const char* ending : {".pem", ".key"}) {
      std::filesystem::rename(fresh + "/" + name + ending, credentials + "/" + name + ending);
    }
  }

  // The records of the log as "level tag: text".
  std::vector<std::string> log_lines() const {
    std::vector<std::string> lines;
    std::istringstream in(read_file(scratch("log")));
    for (std::string line; std::getline(in, line);) {
      lines.push_back(std::regex_replace(line, std::regex(R"(^\S+Z \d+d? )"), ""));
    }
    return lines;
  }

  std::string url_start() const {
    return "16 CVClientCURL: https://master01.example.com:" + std::to_string(server.port()) + "/";
  }

  const ScratchDir scratch;
  const Authority authority{"test authority"};
  const std::string credentials = make_credentials();
  // What the server does with each request; set it before the server starts.
  TlsServer::Handler handle = [](Exchange& exchange) {
    exchange.read_body();
    exchange.answer(200, "hello " + exchange.client());
  };
  TlsServer server{credentials, [this](Exchange& exchange) { handle(exchange); }};

 private:
  std::string make_credentials() const {
    const std::string directory = scratch("credentials");
    std::filesystem::create_directory(directory);
    authority.write(directory + "/ca.pem");
    authority.issue(directory, "host", "DNS:host");
    authority.issue(directory, "service", "DNS:service");
    authority.issue(directory, "server", "DNS:master01.example.com,IP:127.0.0.1,IP:::1");
    return directory;
  }
};

}  // namespace corvane::test
