#include "embedded_host/job_list.h"

#include <string>
#include <unordered_set>

#include "embedded_host/json_writer.h"
#include "embedded_host/text_output.h"

namespace corvane::host {

namespace {

constexpr const char* kSelect =
    "SELECT job_id, parent_job_id, job_type, state, status, client_name, policy_name, "
    "schedule_name,"
    " start_time, end_time, kilobytes_transferred, number_of_files, stream_number,"
    " destination_storage_unit_name, dedup_ratio FROM backups WHERE job_id=? AND start_time<=?";

void append_job(std::string& text, const Query& row, std::int64_t now) {
  const std::int64_t start = row.integer(8);
  const std::int64_t end = row.integer(9);
  const bool done = end <= now;
  // Above 0: the job has begun (start_time<=? above) and not ended.
  const std::int64_t percent = done ? 100 : (now - start) * 100 / (end - start);
  const auto so_far = [&](std::int64_t figure) { return figure * percent / 100; };
  JsonObject job(text);
  job.add("JobId", row.integer(0));
  job.add("ParentJobId", row.integer(1));
  job.add("JobType", row.view(2));
  job.add("State", done ? row.view(3) : "ACTIVE");
  job.add("Status", done ? row.integer(4) : 0);
  job.add("Client", row.view(5));
  job.add("Policy", row.view(6));
  job.add("Schedule", row.view(7));
  job.add("StartTime", start);
  job.add("EndTime", done ? end : 0);
  job.add("KilobytesTransferred", so_far(row.integer(10)));
  job.add("Files", so_far(row.integer(11)));
  job.add("StreamNumber", row.integer(12));
  job.add("DestinationStorageUnitName", row.view(13));
  job.add("DedupRatio", row.real(14));
  job.close();
}

}  // namespace

void write_job_list(Connection& catalog, std::span<const std::int64_t> job_ids, std::int64_t now,
                    std::FILE* out) {
  Query row(catalog.handle(), kSelect);
  std::unordered_set<std::int64_t> seen;
  std::string text = "[";
  bool first = true;
  for (const std::int64_t job_id : job_ids) {
    if (!seen.insert(job_id).second) continue;
    if (!row.restart().bind(job_id).bind(now).step()) continue;
    if (!first) text += ',';
    first = false;
    append_job(text, row, now);
    write_all(out, text);
    text.clear();
  }
  write_all(out, text + "]\n");
}

}  // namespace corvane::host
