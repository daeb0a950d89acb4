// The key of a stream: backups that are compared with each other.
#pragma once

#include <array>
#include <string>

#include "sqlite/query.h"

namespace corvane {

// Types are folded.
struct StreamKey {
  std::string client;
  std::string policy;
  std::string policy_type;
  std::string schedule_type;
  std::string schedule_name;
  std::string app_type;     // "NONE" and empty: unknown
  std::string destination;  // "NA" and empty: unknown

  // An incremental holds what changed; anything else counts as a full backup.
  bool is_incremental() const;
  // Streams of one family differ at most in what the historical gather does not know.
  std::string family() const;
  std::string client_and_policy() const;
  // Its parts joined by "/": the DETECTION_KEY. Not unique where a name holds a "/".
  std::string text() const;
  // Unknown application types and destinations match any.
  bool matches(const StreamKey& other) const;

  bool operator==(const StreamKey&) const = default;
};

// In the order of the columns below.
inline constexpr std::array<std::string StreamKey::*, 7> kStreamKeyParts{
    &StreamKey::client,        &StreamKey::policy,        &StreamKey::policy_type,
    &StreamKey::schedule_type, &StreamKey::schedule_name, &StreamKey::app_type,
    &StreamKey::destination};

// The columns of HIST_DATA and DATA_TO_PROCESS that read_stream_key() reads.
#define STREAM_KEY_COLUMNS                                                \
  "CLIENT, POLICY, POLICY_TYPE, SCHEDULE_TYPE, SCHEDULE_NAME, APP_TYPE, " \
  "DESTINATION_STORAGE_NAME"
inline constexpr int kStreamKeyColumns = kStreamKeyParts.size();

// `first` is the column where they begin.
StreamKey read_stream_key(const Query& row, int first);
// The same; `into` may be used for many rows: its texts keep their memory.
void read_stream_key(const Query& row, int first, StreamKey& into);
// Its parts as the next parameters, in the order of the columns.
void bind_stream_key(Query& query, const StreamKey& stream);

}  // namespace corvane
