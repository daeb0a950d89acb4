// The tables as SQL on standard output, for benchmarks and tests that make such a database without
// the service: anomaly_schema | sqlite3 CV_Anomaly.db
#include <cstdio>

#include "anomaly_database/schema.h"

int main() {
  for (const std::string& table : corvane::anomaly_schema()) {
    if (std::printf("%s\n", table.c_str()) < 0) return 1;
  }
  return std::fflush(stdout) == 0 ? 0 : 1;
}
