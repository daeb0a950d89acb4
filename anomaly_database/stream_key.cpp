#include "anomaly_database/stream_key.h"

#include "anomaly_database/backup_types.h"

namespace corvane {

bool StreamKey::is_incremental() const {
  return schedule_type.find("INCREMENTAL") != std::string::npos;
}

std::string StreamKey::family() const {
  return client_and_policy() + '\n' + policy_type + '\n' + schedule_type + '\n' + schedule_name;
}

std::string StreamKey::client_and_policy() const { return client + '\n' + policy; }

std::string StreamKey::text() const {
  return client + '/' + policy + '/' + policy_type + '/' + schedule_type + '/' + schedule_name +
         '/' + app_type + '/' + destination;
}

bool StreamKey::matches(const StreamKey& other) const {
  const bool same_app = app_type == other.app_type || !is_known_application(app_type) ||
                        !is_known_application(other.app_type);
  const bool same_destination = destination == other.destination ||
                                !is_known_destination(destination) ||
                                !is_known_destination(other.destination);
  return same_app && same_destination && client == other.client && policy == other.policy &&
         policy_type == other.policy_type && schedule_type == other.schedule_type &&
         schedule_name == other.schedule_name;
}

StreamKey read_stream_key(const Query& row, int first) {
  StreamKey key;
  read_stream_key(row, first, key);
  return key;
}

void read_stream_key(const Query& row, int first, StreamKey& into) {
  into.client = row.view(first);
  into.policy = row.view(first + 1);
  into.policy_type = fold_policy_type(row.view(first + 2));
  into.schedule_type = fold_schedule_type(row.view(first + 3));
  into.schedule_name = row.view(first + 4);
  into.app_type = row.view(first + 5);
  into.destination = row.view(first + 6);
}

void bind_stream_key(Query& query, const StreamKey& stream) {
  for (const auto part : kStreamKeyParts) query.bind(stream.*part);
}

}  // namespace corvane
