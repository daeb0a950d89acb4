// The tables as SQL on standard output, for benchmarks and tests that make such a database without
// the service: anomaly_schema | sqlite3 CV_Anomaly.db
#include <iostream>

#include "anomaly_database/schema.h"

int main() {
  for (const std::string& table : corvane::anomaly_schema()) std::cout << table << "\n";
  return std::cout.flush() ? 0 : 1;
}
