#include "companions/alert/incident/endings.h"

#include <algorithm>

#include "finding/incident.h"
#include "util/valid_utf8.h"

namespace corvane::alert {

namespace {

// As findings spell it: they are JSON.
StreamKey as_in_findings(StreamKey stream) {
  for (const auto part : kStreamKeyParts) stream.*part = valid_utf8(stream.*part);
  return stream;
}

}  // namespace

Endings::Endings(const std::vector<KnownIncident>& open) : open_(open), until_(open.size(), 0) {
  for (std::size_t i = 0; i < open.size(); ++i) {
    note(i, open[i].until);
    if (!open[i].has_stream) continue;
    by_family_[open[i].stream.family()].push_back(i);
    since_ = std::min(since_.value_or(open[i].last_time), open[i].last_time);
  }
}

void Endings::see(const StreamKey& stream, std::int64_t time) {
  const StreamKey named = as_in_findings(stream);
  const auto found = by_family_.find(named.family());
  if (found == by_family_.end()) return;
  for (const std::size_t i : found->second) {
    if (open_[i].stream.matches(named)) note(i, time);
  }
}

void Endings::note(std::size_t incident, std::int64_t accepted) {
  IncidentFacts facts;
  facts.last = open_[incident].last_time;
  facts.last_accepted = accepted;
  if (end_of(facts) == IncidentEnd::kNone) return;
  std::int64_t& until = until_[incident];
  until = until == 0 ? accepted : std::min(until, accepted);
}

}  // namespace corvane::alert
