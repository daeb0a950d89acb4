// Archives of the image list, as cvdeployutil creates them.
#pragma once

#include <cstdint>
#include <string>

#include "sqlite/connection.h"

namespace corvane::host {

struct ArchiveRequest {
  std::int64_t start;  // seconds since the epoch, both included
  std::int64_t end;
  std::string master;  // the master server's name
  std::string root;    // the folder of archives; created if it is missing
};

// Writes the folder ROOT/MASTER-START-END with master.txt (the name, no line end),
// gather_options.json and qpimagelist.out, and returns its path. Until it is complete it has
// another name and no master.txt, so that no reader uses half of it. Throws std::runtime_error if
// the archive already exists; QueryError, std::system_error.
std::string write_archive(Connection& catalog, const ArchiveRequest& request, std::int64_t now);

}  // namespace corvane::host
