#include "coverage/job_lister.h"

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "platform/answer_filter.h"
#include "util/path.h"
#include "util/tolerant_json.h"

namespace corvane::coverage {

namespace {

// The file has a record for each job, "BEGIN END HAS_DATA KEY", and then one that begins with one
// of these. Each record ends with a NUL, which no key has.
constexpr char kWhole = '.';
constexpr char kFailed = '!';  // and why

EndedJob read_job(const std::string& record) {
  std::istringstream fields(record);
  EndedJob job;
  fields >> job.job.begin >> job.job.end >> job.has_data;
  fields.get();
  std::getline(fields, job.unique_key, '\0');
  return job;
}

// Visits the jobs of a list. Returns its last record.
std::string read_jobs(const std::string& file, const std::function<void(const EndedJob&)>& visit) {
  std::ifstream records(file, std::ios::binary);
  std::string last;
  for (std::string record; std::getline(records, record, '\0');) {
    if (!last.empty()) visit(read_job(last));
    last = std::move(record);
  }
  return last;
}

void write_jobs(std::ostream& records, TimeRange range) {
  try {
    read_ended_jobs(known_master(), range, [&](const EndedJob& job) {
      records << job.job.begin << ' ' << job.job.end << ' ' << job.has_data << ' ' << job.unique_key
              << '\0';
    });
    records << kWhole << '\0';
  } catch (const std::runtime_error& error) {
    records << kFailed << error.what() << '\0';
  }
}

}  // namespace

bool list_jobs(const Worker& worker, TimeRange range,
               const std::function<void(const EndedJob&)>& visit) {
  const WorkerEnding ending = run_worker(worker, range);
  if (ending == WorkerEnding::kInterrupted) return false;
  if (ending == WorkerEnding::kTooLong) {
    throw std::runtime_error("The list of jobs took longer than " + deadline_text(worker));
  }
  const std::string last = read_jobs(worker.result, visit);
  if (last.starts_with(kFailed)) throw std::runtime_error(last.substr(1));
  if (ending == WorkerEnding::kFailed || last != std::string(1, kWhole)) {
    throw std::runtime_error("The list of jobs ended early");
  }
  return true;
}

void list_jobs_into(const std::string& directory, TimeRange range) {
  end_with_parent();
  set_answer_filter(tolerant_json);
  const std::string file = Path::Combine(directory, kScratchJobs);
  std::ofstream records(file, std::ios::binary);
  write_jobs(records, range);
  records.close();
  if (!records) throw std::runtime_error("cannot write " + file);
}

}  // namespace corvane::coverage
