// Archives of the image list, as cvdeployutil leaves them.
#pragma once

#include <cstdint>
#include <string>

#include "sqlite/connection.h"

namespace corvane::host {

struct ArchiveRequest {
  std::int64_t start;  // seconds since the epoch, both included
  std::int64_t end;
  std::string master;  // the master server's name
  std::string root;    // the folder of archives; made when it is missing
};

// Writes the folder ROOT/MASTER-START-END with master.txt (the name, no line end),
// gather_options.json and qpimagelist.out, and returns its path. It is written under another name
// and without master.txt until it is complete, so that no reader takes a half of it. Throws
// std::runtime_error when there is such an archive already; QueryError, std::system_error.
std::string write_archive(Connection& catalog, const ArchiveRequest& request, std::int64_t now);

}  // namespace corvane::host
