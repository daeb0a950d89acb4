// A database with the service's schema in a scratch directory, and backups to fill it with.
#pragma once

#include <string>
#include <vector>

#include "anomaly_database/backup.h"
#include "companions/detect/observation.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/sql.h"

namespace corvane::detect {

inline constexpr std::int32_t kDay = 86400;
inline constexpr std::int32_t kFirstDay = 1700000000;

// The nightly full backup of a source of about 1000 files and 1,000,000 KB.
inline Backup daily(int day, double files = 1000, double size_kb = 1e6,
                    double transferred_kb = 2e4) {
  Backup backup;
  backup.time = kFirstDay + day * kDay;
  backup.job_id = 1000 + day;
  backup.backup_id = "client_" + std::to_string(backup.time);
  backup.unique_key = "data_" + std::to_string(backup.job_id) + "_" + backup.backup_id;
  backup.stream = {"client", "policy", "STANDARD", "FULL", "daily", "FILE_SYSTEM", "disk"};
  // Some life, the same every time.
  const double wave = (day * 7) % 11 - 5;
  backup.figures = {files + wave, size_kb + 100 * wave, transferred_kb + 500 * wave,
                    size_kb / transferred_kb, 60};
  return backup;
}

// What changed in it that night, a little later.
inline Backup incremental(int day, double files = 20, double size_kb = 2e4) {
  Backup backup = daily(day, files, size_kb, size_kb);
  backup.time += 60;
  backup.job_id += 100000;
  backup.backup_id = "client_" + std::to_string(backup.time);
  backup.unique_key = "data_" + std::to_string(backup.job_id) + "_" + backup.backup_id;
  backup.stream.schedule_type = "DIFFERENTIAL_INCREMENTAL";
  backup.stream.schedule_name = "incremental";
  return backup;
}

inline Backup weekly(int day, double files = 1000, double size_kb = 1e6) {
  Backup backup = daily(day, files, size_kb, size_kb / 2);
  backup.job_id += 200000;
  backup.unique_key = "data_" + std::to_string(backup.job_id) + "_" + backup.backup_id;
  backup.stream.schedule_name = "weekly-full";
  return backup;
}

// A backup of that day as histories keep it.
inline Observation observed(int day, const Figures& figures) {
  Backup backup = daily(day);
  backup.figures = figures;
  return Observation(backup);
}

}  // namespace corvane::detect
