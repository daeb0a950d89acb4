// The alerts' own database, beside the anomaly database: what was read, what was delivered, and
// what is pending.
//
//   record    an anomaly that was read. pending: how many channels have yet to deliver their part;
//             is_marked: it is PROCESSED in the anomaly database
//   incident  what its records have in common: one id at the web service. ended_by: see IncidentEnd
//   message   what is sent; its words never change
//   delivery  a message for one channel. not_before: pending until then. failing_since: when it
//             could have been delivered first. held: the end of the quiet hours that hold it back.
//             summary: the message of the summary that it was folded into
//   told      the severity at which a channel was notified of an incident
//   channel   the health of a channel
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "companions/common/own_database.h"

namespace corvane::alert {

// Of a delivery. Kept as numbers in the database.
enum class DeliveryState {
  kWaiting = 0,
  kFolded = 1,  // delivered with its summary
  kDelivered = 2,
  kGivenUp = 3,
  kReplaced = 4,  // a later message was sent instead
};

// SQL in which {waiting}, {folded}, {delivered}, {given_up}, {replaced} stand for states and
// {report}, {begin}, {rise}, {end}, {summary}, {test} for kinds of messages. Throws
// std::logic_error for any other name.
std::string typed_sql(std::string_view text);

// The number under which the end of the program's last pass is stored, in seconds since the epoch.
inline constexpr char kLastPass[] = "last_pass";

// One connection, for one thread. Everything throws QueryError.
class StateDatabase : public OwnDatabase {
 public:
  // With `create` a missing database is created, and one of an earlier version is upgraded. Throws
  // std::runtime_error for one of a later version.
  explicit StateDatabase(const std::string& path, bool create = true);

  // Distinguishes the messages of this database from those of any other; empty when there is none.
  std::string tag();
};

}  // namespace corvane::alert
