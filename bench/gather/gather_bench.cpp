// gather_bench: one of the service's jobs, by the service's own code, timed.
//
//   gather_bench lines DIRECTORY FILE          an image list into HIST_DATA, one transaction
//   gather_bench history DIRECTORY START END   over REST, in slices of an hour, a transaction each
//   gather_bench live DIRECTORY START END      over REST; each row is its own commit
//   gather_bench store DIRECTORY FILE          the storing half of the latter: FILE holds the jobs,
//   one
//                                              JSON object a line
//   gather_bench purge DIRECTORY MONTHS

#include <fstream>
#include <iostream>
#include <stdexcept>

#include "bench/gather/figures.h"
#include "management/management_service.h"
#include "platform/debug_log.h"
#include "service/host_role.h"

namespace {

constexpr int kSliceSeconds = 3600;
constexpr int kLive = 1;

struct World {
  World(const std::string& directory, const std::string& master)
      : service(directory, "CV_Anomaly.db", "FULL", master, 15) {
    service.initializeDB();
    gather = std::make_unique<DataGather>(service.m_db.get(), directory, master);
    gather->set_detection_state(0);
  }

  ManagementService service;
  std::unique_ptr<DataGather> gather;
};

std::string master_server() {
  std::string name;
  getMasterServerName(name);
  if (name.empty()) throw std::runtime_error("no master server is configured");
  return name;
}

void load_lines(const std::string& directory, const std::string& file) {
  World world(directory, "");
  const corvane::bench::Figures figures;
  world.service.m_db->begin_transaction();
  world.gather->parse_qpimagelist_input(file, 0);
  world.service.m_db->commit_transaction();
  figures.print();
}

void gather_history(const std::string& directory, int start, int end) {
  World world(directory, master_server());
  const corvane::bench::Figures figures;
  for (int at = start; at < end; at += kSliceSeconds) {
    world.service.m_db->begin_transaction();
    world.gather->do_historical_gather(at, std::min(at + kSliceSeconds, end) - 1);
    world.service.m_db->commit_transaction();
  }
  figures.print();
}

void gather_live(const std::string& directory, int start, int end) {
  World world(directory, master_server());
  const corvane::bench::Figures figures;
  world.gather->do_live_gather(start, end);
  figures.print();
}

void store_jobs(const std::string& directory, const std::string& file) {
  World world(directory, "");
  std::ifstream lines(file);
  std::vector<DataGather::Record> jobs;
  for (std::string line; std::getline(lines, line);) {
    jobs.push_back(world.gather->parse_qpimagelist_line(line));
  }
  const corvane::bench::Figures figures;
  world.gather->process_gathered_data(jobs, {}, kLive);
  figures.print();
}

void purge(const std::string& directory, int months) {
  World world(directory, "");
  world.service.m_purge_interval_in_months = months;
  const corvane::bench::Figures figures;
  world.service.purge_database();
  figures.print();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::vector<std::string> words(argv, argv + argc);
    int status = 0;
    open_debug_log("/usr/tessel/corvane/logs", "gather_bench", "gather_bench", 0644, &status);
    const std::string work = words.at(1);
    const std::string& directory = words.at(2);
    if (work == "lines") {
      load_lines(directory, words.at(3));
    } else if (work == "history") {
      gather_history(directory, std::stoi(words.at(3)), std::stoi(words.at(4)));
    } else if (work == "live") {
      gather_live(directory, std::stoi(words.at(3)), std::stoi(words.at(4)));
    } else if (work == "store") {
      store_jobs(directory, words.at(3));
    } else if (work == "purge") {
      purge(directory, std::stoi(words.at(3)));
    } else {
      throw std::invalid_argument("unknown work");
    }
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "gather_bench: " << error.what() << "\n";
    return 1;
  }
}
