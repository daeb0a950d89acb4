// Where the files of an installation are.
#pragma once

#include <string>

namespace corvane::health {

struct Places {
  std::string database;            // the anomaly database
  std::string config;              // the configuration file
  std::string logs;                // the directory of the programs' logs
  std::string alert_database;      // of cvanomalyalert
  std::string ledger;              // of cvanomalyheal
  std::string detection_database;  // of cvanomalydetect

  std::string log_file(const std::string& program) const;
};

// The databases of the other programs are beside the anomaly database.
Places places_of(const std::string& database, const std::string& config, const std::string& logs);

}  // namespace corvane::health
