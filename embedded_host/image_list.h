// The image list: what qpimagelist prints and cvdeployutil archives.
#pragma once

#include <cstdint>
#include <cstdio>

#include "sqlite/connection.h"

namespace corvane::host {

// Writes a line for each image of `catalog` with a backup time from `start` to `end` (seconds since
// the epoch, both included) that exists at `now`, in order of time; or the line "no entity was
// found". Memory does not grow with the number of images. Throws QueryError, std::system_error.
void write_image_list(Connection& catalog, std::int64_t start, std::int64_t end, std::int64_t now,
                      std::FILE* out);

}  // namespace corvane::host
