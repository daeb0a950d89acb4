// What a stream's backups were like, one after the other.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "companions/detect/backup.h"
#include "operator_tool/database.h"

namespace corvane::ctl {

struct HistoryPoint {
  std::int64_t time = 0;
  detect::Figures figures;
  bool is_reported = false;  // as anomalous
  std::string unique_key;
};

// The accepted and the reported backups of the stream up to `until`, by time; the newest `most` of
// them.
std::vector<HistoryPoint> read_history(Database& database, const StreamKey& stream,
                                       std::int64_t until, std::size_t most);

}  // namespace corvane::ctl
