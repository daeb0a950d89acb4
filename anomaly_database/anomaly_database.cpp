#include "anomaly_database/anomaly_database.h"

namespace corvane {

Connection open_for_reading(const std::string& name) { return {name, Connection::Access::kRead}; }

Connection open_for_companion(const std::string& path) {
  Connection connection(path, Connection::Access::kWrite, std::chrono::milliseconds(500));
  // What a power failure takes back is judged, or marked, again; it need not be waited for.
  connection.execute("PRAGMA synchronous=NORMAL");
  return connection;
}

}  // namespace corvane
