// cvhostd: the embedded host product's web service, and the commands that prepare a host for it.

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>

#include "embedded_host/catalog.h"
#include "embedded_host/catalog_loader.h"
#include "embedded_host/credentials.h"
#include "embedded_host/https_server.h"
#include "embedded_host/web_service.h"

namespace corvane::host {

namespace {

struct ServeOptions {
  HttpsOptions https{.credentials = "/usr/tessel/var/credentials"};
  std::string catalog = kDefaultCatalog;
  AcceptedClients accepted = AcceptedClients::kBoth;
  std::int64_t close_delay = 0;
};

int serve(const ServeOptions& options) {
  signal(SIGPIPE, SIG_IGN);
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);  // before any thread, so that all of them inherit it

  std::atomic<bool> stopping = false;
  WebService service(options.catalog, options.accepted, options.close_delay, stopping);
  HttpsServer server(
      options.https, service, [] { return static_cast<std::int64_t>(std::time(nullptr)); },
      stopping);
  std::cout << "cvhostd: listening on " << options.https.address << ":" << server.port()
            << std::endl;
  int received = 0;
  sigwait(&ends, &received);
  if (!stopping) return 0;
  std::cerr << "cvhostd: cannot accept any more connections\n";
  return 1;
}

int load(const std::string& catalog_path, const std::string& file) {
  std::ifstream opened;
  if (file != "-") {
    opened.open(file, std::ios::binary);
    if (!opened) {
      std::cerr << "cvhostd: " << file << ": " << std::strerror(errno) << "\n";
      return 1;
    }
  }
  Connection catalog = open_catalog(catalog_path, Connection::Access::kCreate);
  const LoadResult result =
      load_backups(catalog, file == "-" ? std::cin : opened, file == "-" ? "standard input" : file,
                   [](const std::string& complaint) { std::cerr << complaint << "\n"; });
  std::cout << result.loaded << (result.loaded == 1 ? " backup" : " backups") << " loaded into "
            << catalog_path << ", " << result.rejected
            << (result.rejected == 1 ? " line" : " lines") << " rejected" << std::endl;
  return result.rejected == 0 ? 0 : 1;
}

int give_feedback(const std::string& catalog_path, const std::string& anomaly_id,
                  const std::string& feedback) {
  Connection catalog = open_catalog(catalog_path, Connection::Access::kWrite);
  put_feedback(catalog, anomaly_id, feedback);
  std::cout << anomaly_id << ": " << feedback << std::endl;
  return 0;
}

constexpr const char* kLoadHelp =
    "Load backups into a catalog, which is created if it is missing. FILE (- for standard input) "
    "has one JSON object per line, with the web service's attributes: jobId jobType clientName "
    "policyName policyType scheduleName scheduleType startTime endTime, and optionally parentJobId "
    "state status backupId (without it there is no image) backupTime kbytes kilobytesTransferred "
    "numFiles numberOfFiles dedupRatio streamNumber destinationStorageUnitName applicationType "
    "providerGeneratedId. A job id that exists is replaced. Bad lines are reported on standard "
    "error, the others are loaded, and the exit status is then 1.";

constexpr const char* kFaultHelp =
    "While this file exists, its first matching line decides the answer: [PATH] ACTION [skip N] "
    "[count N]. ACTION is one of: status CODE, garbage, truncate, cut, hang SECONDS, null-end-time "
    "[ELEMENT], surrogate [ELEMENT], nul [ELEMENT], latin1 [ELEMENT]";

void add_serve_options(CLI::App& app, ServeOptions& options) {
  const std::map<std::string, AcceptedClients> types = {{"host", AcceptedClients::kHost},
                                                        {"service", AcceptedClients::kService},
                                                        {"both", AcceptedClients::kBoth}};
  app.add_option("--catalog", options.catalog, "The catalog to serve")->capture_default_str();
  app.add_option("--address", options.https.address, "Address to listen on")->capture_default_str();
  app.add_option("--port", options.https.port,
                 "Port to listen on; 0: any free port, which is printed")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  app.add_option("--credentials", options.https.credentials,
                 "Directory of ca.pem, server.pem and server.key")
      ->capture_default_str();
  app.add_option("--accept", options.accepted,
                 "Which client certificates are accepted (host, service or both); others get 401")
      ->transform(CLI::CheckedTransformer(types).description(""))
      ->default_str("both");
  app.add_option(
         "--close-delay", options.close_delay,
         "Seconds after its end for which a job is shown as running; its image appears at its end")
      ->check(CLI::Range(0, 86400))
      ->capture_default_str();
  app.add_option("--threads", options.https.threads,
                 "Connections served at a time, including kept-alive ones")
      ->check(CLI::Range(1, 512))
      ->capture_default_str();
  app.add_option(
         "--time-out", options.https.time_out_seconds,
         "Seconds that a client may take to send its request, and to accept a piece of the answer; "
         "multiply it by the speed of a clock that runs fast")
      ->check(CLI::Range(1, 1000000))
      ->capture_default_str();
  app.add_option("--access-log", options.https.access_log, "Append a line for each request");
  app.add_option("--fault-file", options.https.fault_file, kFaultHelp);
}

int run(int argc, char** argv) {
  CLI::App app(
      "The web service of a Corvane host on one machine: serves the backups of a catalog that have "
      "happened by now. For a new host: cvhostd credentials DIR, cvhostd load CATALOG FILE, "
      "cvhostd serve.");
  app.name("cvhostd");
  app.require_subcommand(1);
  int status = 0;

  ServeOptions options;
  auto* serving = app.add_subcommand(
      "serve", "Serve until SIGTERM or SIGINT. HTTPS, TLS 1.2 or later, with client certificates");
  add_serve_options(*serving, options);
  serving->callback([&] { status = serve(options); });

  std::string catalog;
  std::string file;
  auto* loading = app.add_subcommand("load", kLoadHelp);
  loading->add_option("CATALOG", catalog)->required();
  loading->add_option("FILE", file)->required();
  loading->callback([&] { status = load(catalog, file); });

  std::string anomaly_id;
  std::string feedback;
  auto* judging = app.add_subcommand("feedback", "Record a user's feedback on a reported anomaly");
  judging->add_option("CATALOG", catalog)->required();
  judging->add_option("ANOMALY_ID", anomaly_id)->required();
  judging->add_option("FEEDBACK", feedback, "FALSE_POSITIVE, CONFIRMED or NONE")->required();
  judging->callback([&] { status = give_feedback(catalog, anomaly_id, feedback); });

  std::string directory;
  std::vector<std::string> servers;
  auto* certifying = app.add_subcommand(
      "credentials", "Create the certificates and keys of a new host in DIR; none is overwritten");
  certifying->add_option("DIR", directory)->required();
  certifying->add_option("--server", servers,
                         "A name of the server, besides localhost; may be repeated");
  certifying->callback([&] { make_credentials(directory, servers); });

  CLI11_PARSE(app, argc, argv);
  return status;
}

}  // namespace

}  // namespace corvane::host

int main(int argc, char** argv) {
  try {
    return corvane::host::run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "cvhostd: " << corvane::host::plain_reason(error) << "\n";
    return 1;
  }
}
