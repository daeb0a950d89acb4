// gather_example: one gather without a master server, with only the product's command-line tools.
//
// The service always knows its master server and gathers over REST. This example shows the other
// way, and how your own program can use a DataGather.

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <limits>
#include <vector>

#include "gather/data_gather.h"
#include "management/management_service.h"
#include "platform/debug_log.h"
#include "platform/host_product.h"

namespace {

constexpr char kProgram[] = "gather_example";
constexpr char kLogDirectory[] = "/usr/tessel/corvane/logs";
constexpr char kNoMasterServer[] = "";

struct Request {
  std::string database_dir;
  std::string mode;
  int start = 0;
  int end = 0;
  bool detection_off = false;
};

void open_log() {
  int status = 0;
  open_debug_log(kLogDirectory, kProgram, kProgram, 0644, &status);
  if (status >= 0) return;
  // The log opens the file a second time: neither descriptor may overwrite what the other wrote.
  fcntl(STDERR_FILENO, F_SETFL, O_APPEND);
  open_debug_log("/dev", kProgram, "stderr", 0644, &status);
}

std::string count_rows(ManagementService::DBAccess& db, const std::string& table) {
  std::vector<Altamir::Corvane::UsageReporting::SQLiteDatabase::Row> rows;
  db.read_data("SELECT COUNT(*) FROM " + table + ";", rows);
  return rows.at(0)["COUNT(*)"];
}

void gather(const Request& request) {
  std::filesystem::create_directories(request.database_dir);
  ManagementService service(request.database_dir, "CV_Anomaly.db", "FULL", kNoMasterServer, 15);
  service.initializeDB();
  DataGather gather(service.m_db.get(), request.database_dir, kNoMasterServer);
  gather.set_detection_state(request.detection_off ? 1 : 0);
  if (request.mode == "live") {
    gather.do_live_gather(request.start, request.end);
  } else {
    service.m_db->begin_transaction();
    gather.do_historical_gather(request.start, request.end);
    service.m_db->commit_transaction();
  }
  for (const char* table : {"HIST_DATA", "DATA_TO_PROCESS"}) {
    std::cout << table << ": " << count_rows(*service.m_db, table) << " rows\n";
  }
}

void describe(CLI::App& app, Request& request) {
  const CLI::Range seconds(0, std::numeric_limits<int>::max());
  app.name(kProgram);
  app.add_option("DATABASE_DIR", request.database_dir,
                 "Directory of CV_Anomaly.db; both are created if they are missing")
      ->required();
  app.add_option("MODE", request.mode,
                 "live: images with their jobs, into DATA_TO_PROCESS; historical: images only, "
                 "into HIST_DATA")
      ->required()
      ->check(CLI::IsMember({"live", "historical"}));
  app.add_option("START", request.start, "First second of the gather, since 1970 (UTC)")
      ->required()
      ->check(seconds);
  app.add_option("END", request.end, "Last second of the gather")->required()->check(seconds);
  app.add_flag("--detection-off", request.detection_off,
               "Gather as the service does while the detection is disabled. Live records from the "
               "tools wait in DATA_TO_PROCESS nevertheless");
}

}  // namespace

int main(int argc, char** argv) {
  Request request;
  try {
    CLI::App app(
        "Gathers the backups from START to END into a database, without a master server: with the "
        "tools qpimagelist and qpdbjobs. Prints the number of rows of the tables. Errors are in "
        "the log, /usr/tessel/corvane/logs/gather_example (or on standard error if it cannot be "
        "written).");
    describe(app, request);
    CLI11_PARSE(app, argc, argv);
    if (request.start > request.end) {
      std::cerr << kProgram << ": START is after END\n";
      return 1;
    }
    request.database_dir = std::filesystem::absolute(request.database_dir);
    enable_process_for_service_account();  // goes to the directory of the tools
    open_log();
    gather(request);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << kProgram << ": " << request.database_dir << ": " << error.what() << "\n";
    return 1;
  }
}
