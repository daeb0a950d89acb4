// Backup images from the product's image-list tool, and from files of its output.
#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "anomaly_database/backup_row.h"
#include "gather/data_gather.h"
#include "gather/row_mappers.h"
#include "platform/c_handles.h"
#include "platform/debug_log.h"
#include "platform/json_memory.h"
#include "platform/program_names.h"
#include "sqlite/sqlite_exception.h"
#include "util/file.h"
#include "util/path.h"
#include "util/process.h"
#include "util/scratch_file.h"

using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;
using corvane::kLogDetail;
using corvane::kLogError;
using corvane::kManagementProgram;
using corvane::to_int;

namespace {

constexpr int kLive = 1;
constexpr std::size_t kJobBatch = 50;

// Fetches the details of one batch of jobs and stores them; a failure affects only this batch.
void process_job_batch(DataGather& gather, std::vector<int>& batch,
                       std::map<int, DataGather::Record>& images_by_job) {
  try {
    std::vector<DataGather::Record> jobs;
    gather.get_job_details_json_from_job_id(batch, jobs);
    gather.process_jobs_info_live_gather(jobs, images_by_job);
  } catch (...) {
    logmsg(kLogDetail, kManagementProgram, "Failed to gather job information.");
  }
}

}  // namespace

void DataGather::do_image_gather(int start_time, int end_time, int mode) {
  const corvane::ScratchFile output(Path::Combine(db_location, "image.out"));
  File::WriteAllText(output.path(), "");
  const std::string arguments = " -X  -d " + std::to_string(start_time) + "  -e  " +
                                std::to_string(end_time) + " -json_compact ";
  logmsgf(kLogDetail, kManagementProgram, "Executing [ qpimagelist  %s ]", arguments.c_str());
  Process process("./admincmd/qpimagelist", arguments);
  process.redirect_to_file(output.path());
  process.start();
  parse_qpimagelist_input(output.path(), mode);
}

void DataGather::parse_qpimagelist_input(const std::string& path, int mode) {
  logmsgf(kLogDetail, kManagementProgram, "Parsing file %s", path.c_str());
  std::ifstream file(path);
  std::map<int, Record> images_by_job;
  std::vector<int> job_ids;
  int images = 0;
  for (std::string line; std::getline(file, line);) {
    if (line == "no entity was found") {
      logmsg(kLogDetail, kManagementProgram, "No data received");
      continue;
    }
    Record image;
    try {
      image = parse_qpimagelist_line(line);
    } catch (...) {
      logmsg(kLogDetail, kManagementProgram, "Issue parsing image. Continue with other images.");
      continue;
    }
    if (mode == kLive) {
      const int job_id = to_int(image["job_id"]);
      images_by_job.emplace(job_id, std::move(image));
      job_ids.push_back(job_id);
    } else {
      try {
        process_image_data(image, mode);
      } catch (const std::exception& error) {
        logmsgf(kLogDetail, kManagementProgram, "Failed to parse. Details: %s", error.what());
      }
    }
    ++images;
  }
  for (std::size_t first = 0; first < job_ids.size(); first += kJobBatch) {
    const std::size_t last = std::min(first + kJobBatch, job_ids.size());
    std::vector<int> batch(&job_ids[first], &job_ids[first] + (last - first));
    process_job_batch(*this, batch, images_by_job);
  }
  logmsgf(kLogDetail, kManagementProgram, "Total images captured = %d", images);
  if (file.bad()) logmsgf(kLogError, kManagementProgram, "Could not read all of %s", path.c_str());
}

DataGather::Record DataGather::parse_qpimagelist_line(const std::string& line) {
  const corvane::JsonMemory memory;
  const corvane::JsonPtr root = corvane::load_json(line);
  if (!root) {
    logmsgf(kLogError, kManagementProgram, "Error while parsing line %s.", line.c_str());
    throw std::runtime_error("JSON parsing failed for qpimagelist image.");
  }
  // A root that is not an object has no members: an empty record, not an error.
  Record record;
  corvane::for_each_member(root.get(), [&](std::string_view name, const json_t* value) {
    if (name != "frags") record.emplace(name, corvane::json_value_to_text(value));
  });
  return record;
}

void DataGather::process_image_data(Record& image, int /*mode*/) {
  const corvane::BackupRow row = corvane::row_of_listed_image(*this, image);
  try {
    corvane::insert_row(*db, corvane::kInsertHistData, row);
  } catch (const sqlite_exception& error) {
    logmsgf(kLogError, kManagementProgram, "Error inserting data in IMAGE_DATA %s", error.what());
  }
}
