// A catalog of a test's own.
#pragma once

#include <jansson.h>

#include <sstream>
#include <string>
#include <vector>

#include "embedded_host/catalog.h"
#include "embedded_host/catalog_loader.h"
#include "embedded_host/iso_time.h"
#include "platform/c_handles.h"
#include "tests/support/scratch_dir.h"

namespace corvane::host::test {

// 2026-01-31T00:00:00Z
inline constexpr std::int64_t kDay = 1769817600;

// A catalog line of a job that starts at `start` (seconds since the epoch) and lasts `seconds`.
// `more` is text of further members, each led by a comma.
inline std::string backup_line(int job_id, std::int64_t start, std::int64_t seconds,
                               const std::string& more = "") {
  return "{\"jobId\":" + std::to_string(job_id) +
         ",\"jobType\":\"BACKUP\",\"clientName\":\"web01\",\"policyName\":\"web\","
         "\"policyType\":\"STANDARD\",\"scheduleName\":\"daily\",\"scheduleType\":\"FULL\","
         "\"backupId\":\"web01_" +
         std::to_string(start) + "\",\"startTime\":\"" + iso_time(start) + "\",\"endTime\":\"" +
         iso_time(start + seconds) + "\"" + more + "}";
}

// An image that is hard to mistake: every figure has a value of its own.
inline std::string full_line() {
  return backup_line(
      42, kDay, 60,
      R"(,"parentJobId":41,"state":"DONE","status":1,"backupTime":"2026-01-30T23:00:00.000Z",)"
      R"("kbytes":2048,"kilobytesTransferred":1000,"numFiles":300,"numberOfFiles":301,)"
      R"("dedupRatio":2.5,"streamNumber":7,"destinationStorageUnitName":"disk",)"
      R"("applicationType":"FILES","providerGeneratedId":"asset-1")");
}

struct CatalogWorld {
  corvane::test::ScratchDir dir;
  std::string path = dir("catalog.db");

  // Loads these lines and returns the complaints.
  std::vector<std::string> load(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    std::istringstream in(text);
    Connection catalog = open_catalog(path, Connection::Access::kCreate);
    std::vector<std::string> complaints;
    load_backups(catalog, in, "lines",
                 [&](const std::string& complaint) { complaints.push_back(complaint); });
    return complaints;
  }
};

inline JsonPtr parse(const std::string& text) {
  return JsonPtr(json_loadb(text.data(), text.size(), 0, nullptr));
}

// The ids of an answer's elements.
inline std::vector<std::string> ids(const std::string& answer) {
  const JsonPtr root = parse(answer);
  std::vector<std::string> found;
  const json_t* data = json_object_get(root.get(), "data");
  for (std::size_t i = 0; i < json_array_size(data); ++i) {
    found.emplace_back(json_string_value(json_object_get(json_array_get(data, i), "id")));
  }
  return found;
}

// What a function that writes to a stream has written.
template <typename Write>
std::string written(Write write) {
  const FilePtr file(std::tmpfile());
  write(file.get());
  std::rewind(file.get());
  std::string text;
  for (int c = std::fgetc(file.get()); c != EOF; c = std::fgetc(file.get())) {
    text += static_cast<char>(c);
  }
  return text;
}

}  // namespace corvane::host::test
