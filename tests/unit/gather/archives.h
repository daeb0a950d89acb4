// Archives of the deployment utility beside a scratch database.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>

#include "service/host_role.h"
#include "tests/unit/gather/gather_world.h"

namespace corvane::test {

struct ArchiveWorld : GatherWorld {
  ArchiveWorld() { std::filesystem::create_directory(scratch("incremental")); }

  // The full path of an archive as the code under test writes it.
  std::string path(const std::string& name) const { return gather->deployutil_dir + name; }

  std::filesystem::path file(const std::string& name, const std::string& file_name) const {
    return std::filesystem::path(scratch("incremental")) / name / file_name;
  }

  // An archive of this master for [start, end] that holds one image for each job id.
  void archive(const std::string& name, int start, int end, const std::vector<int>& job_ids = {}) {
    write_file(file(name, "master.txt"), kMaster);
    write_file(file(name, "gather_options.json"), R"({"start": )" + std::to_string(start) +
                                                      R"(, "end": )" + std::to_string(end) + "}\n");
    std::string images;
    for (const int id : job_ids) images += R"({"job_id": )" + std::to_string(id) + "}\n";
    write_file(file(name, "qpimagelist.out"), images);
  }

  std::vector<std::string> stored_jobs() const {
    return query_column(handle(), "SELECT JOB_ID FROM HIST_DATA ORDER BY JOB_ID");
  }
};

// The folders come in directory order, which is nobody's: tests sort or ask the directory.
inline std::vector<std::string> sorted(std::vector<std::string> names) {
  std::sort(names.begin(), names.end());
  return names;
}

class ArchivesTest : public PlatformFake {
 protected:
  ArchiveWorld world;
  DataGather& gather = *world.gather;
  sqlite3* db = world.handle();
};

}  // namespace corvane::test
