#include "anomaly_database/anomaly_database.h"

namespace corvane {

Connection open_for_reading(const std::string& name) { return {name, Connection::Access::kRead}; }

Connection open_for_companion(const std::string& path) {
  Connection connection(path, Connection::Access::kWrite, std::chrono::milliseconds(500));
  // A commit that a power failure undoes is made again: no need to wait for the disk.
  connection.execute("PRAGMA synchronous=NORMAL");
  return connection;
}

}  // namespace corvane
