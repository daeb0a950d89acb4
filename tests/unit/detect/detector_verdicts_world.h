// A detector, and its own database.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "companions/detect/verdict_database.h"
#include "tests/unit/detect/detector_world.h"

namespace corvane::detect {

class DetectorVerdicts : public DetectorTest {
 protected:
  // A pass of the detector at hand, or of a new one.
  PassCounts pass() {
    if (detector_ == nullptr) {
      detector_ = std::make_unique<Detector>(world_.path(), Settings{}, [] { return false; });
    }
    return detector_->pass();
  }
  void stop() { detector_.reset(); }
  const Stream& stream() {
    for (const auto& one : detector_->model().all()) {
      if (one->key == good_.stream) return *one;
    }
    throw std::logic_error("no such stream");
  }
  std::optional<KnownVerdict> own(const Backup& backup) {
    return open_verdicts_for_reading(world_.own_path())->find(backup.unique_key);
  }
  void change_own(const std::string& sql) {
    Connection(world_.own_path(), Connection::Access::kWrite).execute(sql.c_str());
  }
  // Undoes the detection's last commits to its own database. Nobody has it open.
  void keep_own() { std::filesystem::copy_file(world_.own_path(), world_.own_path() + ".kept"); }
  void restore_own() { std::filesystem::rename(world_.own_path() + ".kept", world_.own_path()); }
  // Of the anomaly database: the row waits again, and nothing was written of it.
  void undo_commit(const Backup& backup) {
    const std::string key = "'" + backup.unique_key + "'";
    world_.run("UPDATE DATA_TO_PROCESS SET PROCESSED_STATUS = 0 WHERE UNIQUE_KEY = " + key);
    world_.run("DELETE FROM HIST_DATA WHERE UNIQUE_KEY = " + key);
    world_.run("DELETE FROM ANOMALY_DATA WHERE ANOMALY_UNIQUE_ID = 'anomaly_' || " + key);
  }
  static std::size_t all(const PassCounts& counts) {
    return counts.normal + counts.learning + counts.anomalous;
  }

  std::unique_ptr<Detector> detector_;
};

}  // namespace corvane::detect
