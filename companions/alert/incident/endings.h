// Which ongoing incidents are resolved by a normal backup of their stream, and since when.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "companions/alert/incident/incident_book.h"

namespace corvane::alert {

// For one pass over the history.
class Endings {
 public:
  // `open` must outlive it.
  explicit Endings(const std::vector<KnownIncident>& open);

  // Only backups after this time can resolve an incident. Absent: no incident can be resolved.
  std::optional<std::int64_t> since() const { return since_; }

  // Takes an accepted backup into account.
  void see(const StreamKey& stream, std::int64_t time);

  // Backup time of the first normal backup after the last record; 0: the incident is ongoing.
  std::int64_t until(std::size_t incident) const { return until_.at(incident); }

 private:
  void note(std::size_t incident, std::int64_t accepted);

  const std::vector<KnownIncident>& open_;
  std::vector<std::int64_t> until_;
  std::unordered_map<std::string, std::vector<std::size_t>> by_family_;
  std::optional<std::int64_t> since_;
};

}  // namespace corvane::alert
