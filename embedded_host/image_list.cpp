#include "embedded_host/image_list.h"

#include <string>

#include "embedded_host/code_tables.h"
#include "embedded_host/json_writer.h"
#include "embedded_host/text_output.h"

namespace corvane::host {

namespace {

constexpr const char* kSelect =
    "SELECT client_name, policy_name, backup_id, policy_type, backup_time, schedule_type,"
    " schedule_name, num_files, kbytes, job_id, stream_number, provider_generated_id,"
    " end_time-start_time, destination_storage_unit_name FROM backups"
    " WHERE backup_id <> '' AND backup_time BETWEEN ? AND ? AND end_time <= ?"
    " ORDER BY backup_time, backup_id";

constexpr std::int64_t kNeverExpires = 2147483647;

void append_image(std::string& line, const Query& row) {
  const std::int64_t kbytes = row.integer(8);
  JsonObject image(line);
  image.add("client_name", row.view(0));
  image.add("policy_name", row.view(1));
  image.add("backupid", row.view(2));
  image.add("client_type", std::int64_t{policy_type_code(row.view(3)).value_or(-1)});
  image.add("backup_time", row.integer(4));
  image.add("sched_type", std::int64_t{schedule_type_code(row.view(5)).value_or(-1)});
  image.add("sched_label", row.view(6));
  image.add("num_files", row.integer(7));
  image.add("kbytes", kbytes);
  image.add("job_id", row.integer(9));
  image.add("stream_number", row.integer(10));
  image.add("provider_generated_id", row.view(11));
  image.add("elapsed_time", row.integer(12));
  image.add("expiration", kNeverExpires);
  image.add("copies", std::int64_t{1});
  image.begin_member("frags");
  line += '[';
  JsonObject fragment(line);
  fragment.add("copy", std::int64_t{1});
  fragment.add("number", std::int64_t{1});
  fragment.add("kbytes", kbytes);
  fragment.add("storage_unit", row.view(13));
  fragment.close();
  line += ']';
  image.close();
}

}  // namespace

void write_image_list(Connection& catalog, std::int64_t start, std::int64_t end, std::int64_t now,
                      std::FILE* out) {
  Query rows(catalog.handle(), kSelect);
  rows.bind(start).bind(end).bind(now);
  bool found = false;
  std::string line;
  while (rows.step()) {
    found = true;
    line.clear();
    append_image(line, rows);
    line += '\n';
    write_all(out, line);
  }
  if (!found) write_all(out, "no entity was found\n");
}

}  // namespace corvane::host
