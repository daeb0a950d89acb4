#include "anomaly_database/stream_scan.h"

#include <algorithm>
#include <string>
#include <unordered_map>

#include "anomaly_database/portions.h"
#include "anomaly_database/statuses.h"

namespace corvane {

namespace {

constexpr char kHistory[] =
    "SELECT " PORTION_COLUMNS
    "USER_IDENTIFIED_CLUSTER FROM HIST_DATA" AFTER_FORMER_PORTION BY_PORTIONS;
constexpr char kToProcess[] =
    "SELECT " PORTION_COLUMNS
    "PROCESSED_STATUS FROM DATA_TO_PROCESS" AFTER_FORMER_PORTION BY_PORTIONS;

// The streams of the rows, with their spellings of types folded.
class Scanner {
 public:
  explicit Scanner(StreamScan& result) : streams_(result.streams) {}

  ScannedStream& stream_of(const Query& row) {
    spell_stream(row, spelling_);
    // Every night the streams come in much the same order.
    std::size_t place = spellings_[former_].follower;
    if (*spellings_[place].text != spelling_) {
      const auto known = by_spelling_.find(spelling_);
      place = known == by_spelling_.end() ? add(row) : known->second;
      spellings_[former_].follower = place;
    }
    former_ = place;
    return streams_[spellings_[place].stream];
  }

 private:
  struct Spelling {
    const std::string* text;   // in by_spelling_
    std::size_t stream;        // in streams_
    std::size_t follower = 0;  // the one that came after it last time
  };

  std::size_t add(const Query& row) {
    const StreamKey key = read_stream_key(row, kPortionKeyColumn);
    const auto [place, is_new] = by_text_.try_emplace(key.text(), streams_.size());
    if (is_new) {
      streams_.emplace_back();
      streams_.back().key = key;
    }
    const auto spelling = by_spelling_.emplace(spelling_, spellings_.size()).first;
    spellings_.push_back({&spelling->first, place->second});
    return spellings_.size() - 1;
  }

  std::vector<ScannedStream>& streams_;
  const std::string before_;  // the first row: no row is spelled like this
  std::string spelling_;
  std::size_t former_ = 0;
  std::vector<Spelling> spellings_{{&before_, 0}};
  std::unordered_map<std::string, std::size_t> by_spelling_;
  std::unordered_map<std::string, std::size_t> by_text_;
};

void scan_history(Connection& database, Scanner& scanner, StreamScan& result) {
  read_portions(database, kHistory, [&](const Query& row) {
    ++result.history_rows;
    ScannedStream& stream = scanner.stream_of(row);
    const std::int64_t time = row.integer(kPortionTimeColumn);
    stream.newest = std::max(stream.newest, time);
    if (row.integer(kPortionOwnColumn) == kNoCluster) {
      stream.accepted.push_back(static_cast<std::int32_t>(time));
    } else {
      ++stream.false_positives;
    }
  });
}

// Normal ones are in the history too.
void scan_rows_to_process(Connection& database, Scanner& scanner, StreamScan& result) {
  read_portions(database, kToProcess, [&](const Query& row) {
    ++result.process_rows;
    const auto status = static_cast<ProcessedStatus>(row.integer(kPortionOwnColumn));
    if (status != ProcessedStatus::kWaiting && status != ProcessedStatus::kAnomalous) return;
    ScannedStream& stream = scanner.stream_of(row);
    const std::int64_t time = row.integer(kPortionTimeColumn);
    stream.newest = std::max(stream.newest, time);
    if (status == ProcessedStatus::kAnomalous) {
      ++stream.anomalous;
      return;
    }
    ++stream.waiting;
    ++result.waiting_rows;
    result.oldest_waiting =
        result.oldest_waiting == 0 ? time : std::min(result.oldest_waiting, time);
  });
}

}  // namespace

StreamScan scan_streams(Connection& database) {
  StreamScan result;
  Scanner scanner(result);
  scan_history(database, scanner, result);
  scan_rows_to_process(database, scanner, result);
  for (ScannedStream& stream : result.streams) std::ranges::sort(stream.accepted);
  return result;
}

}  // namespace corvane
