// The alerts' own database beside the anomaly database: what was taken in, what each channel has
// taken, what waits.
//
//   record    an anomaly that was taken in. pending: how many channels have not yet taken what
//             belongs to it; is_marked: it is PROCESSED in the anomaly database
//   incident  what several records have in common: one id at the web service. ended_by: see
//             IncidentEnd
//   message   what is to be told; its words do not change
//   delivery  a message for one channel. not_before: it waits until then. failing_since: from when
//             on the channel has not taken it. held: the end of the quiet hours that hold it back.
//             summary: the message of the summary that it was folded into
//   told      the severity at which a channel knows of an incident
//   channel   how a channel fares
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "sqlite/connection.h"

namespace corvane::alert {

// Of a delivery. Kept as numbers in the database.
enum class DeliveryState {
  kWaiting = 0,
  kFolded = 1,  // goes out with its summary
  kDelivered = 2,
  kGivenUp = 3,
  kReplaced = 4,  // a later message says it all
};

// SQL in which {waiting}, {folded}, {delivered}, {given_up}, {replaced} stand for states and
// {report}, {begin}, {rise}, {end}, {summary}, {test} for kinds of messages. Throws
// std::logic_error for any other name.
std::string typed_sql(std::string_view text);

// One connection, for one thread. Everything throws QueryError.
class StateDatabase : public Connection {
 public:
  // With `create` the database is made when it is missing, and brought up to this version when a
  // former one has made it. Throws std::runtime_error for one of a later version.
  explicit StateDatabase(const std::string& path, bool create = true);

  // A number or text kept under a name; 0 and empty when there is none.
  std::int64_t number_of(const char* name);
  void set_number(const char* name, std::int64_t number);

  // Tells this database's messages from those of any other.
  std::string tag();
};

}  // namespace corvane::alert
