// Since when each open incident is over: its stream had a usual backup after the last record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "companions/alert/incident/incident_book.h"

namespace corvane::alert {

// For one look at the history.
class Endings {
 public:
  // `open` must outlive it.
  explicit Endings(const std::vector<KnownIncident>& open);

  // No backup up to then can be an end; absent: no incident can end.
  std::optional<std::int64_t> since() const { return since_; }

  // An accepted backup.
  void see(const StreamKey& stream, std::int64_t time);

  // Backup time of the first usual backup after the last record; 0: it goes on.
  std::int64_t until(std::size_t incident) const { return until_.at(incident); }

 private:
  void note(std::size_t incident, std::int64_t usual);

  const std::vector<KnownIncident>& open_;
  std::vector<std::int64_t> until_;
  std::unordered_map<std::string, std::vector<std::size_t>> by_family_;
  std::optional<std::int64_t> since_;
};

}  // namespace corvane::alert
