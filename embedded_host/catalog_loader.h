// Filling the catalog from JSON Lines.
#pragma once

#include <cstdint>
#include <functional>
#include <istream>
#include <stdexcept>
#include <string>

#include "sqlite/connection.h"

namespace corvane::host {

struct LoadResult {
  std::int64_t loaded = 0;
  std::int64_t rejected = 0;
};

// The input could not be read, or the catalog not be written; what() says which, and how many
// backups were stored before.
class LoadFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Loads every valid line of `lines` (see backup.h) and calls `complain` with "NAME:LINE: reason"
// for every bad one. Empty lines are ignored. Commits often, so that readers and other writers wait
// only for moments. Loading the same lines again changes nothing. Throws LoadFailure.
LoadResult load_backups(Connection& catalog, std::istream& lines, const std::string& name,
                        const std::function<void(const std::string&)>& complain);

}  // namespace corvane::host
