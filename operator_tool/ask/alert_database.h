// The alerts' own database beside the anomaly database, opened read-only.
#pragma once

#include "companions/alert/state_database.h"
#include "operator_tool/ask/database.h"
#include "operator_tool/options.h"
#include "util/directory.h"

namespace corvane::ctl {

// Gives `work` the database; nothing happens when there is none. Throws Trouble when it cannot be
// read, and ChangedMeanwhile.
template <typename Work>
void with_alert_database(const Options& options, Work work) {
  const std::string path = options.alert_database();
  if (!Directory::CanAccess(path)) return;
  const ReadOnlySource source(path);
  try {
    alert::StateDatabase state(source.uri(), false);
    work(state);
  } catch (const std::exception& error) {
    if (source.has_changed()) throw ChangedMeanwhile();
    throw trouble_of(path, error);
  }
  if (source.has_changed()) throw ChangedMeanwhile();
}

}  // namespace corvane::ctl
