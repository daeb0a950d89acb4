// The companions' own databases and the ledger, opened read-only.
#pragma once

#include <string>

#include "companions/alert/state_database.h"
#include "companions/detect/verdict_database.h"
#include "coverage/ledger.h"
#include "health/database.h"
#include "util/directory.h"

namespace corvane::health {

// Gives `work` the name to open the database at `path` by; nothing happens when there is none.
// Throws Trouble when it cannot be read, and ChangedMeanwhile.
template <typename Work>
void with_own_database(const std::string& path, Work work) {
  if (!Directory::CanAccess(path)) return;
  const ReadOnlySource source(path);
  try {
    work(source.uri());
  } catch (const std::exception& error) {
    if (source.has_changed()) throw ChangedMeanwhile();
    throw trouble_of(path, error);
  }
  if (source.has_changed()) throw ChangedMeanwhile();
}

template <typename Work>
void with_alert_database(const std::string& path, Work work) {
  with_own_database(path, [&](const std::string& name) {
    alert::StateDatabase state(name, false);
    work(state);
  });
}

template <typename Work>
void with_ledger(const std::string& path, Work work) {
  with_own_database(path, [&](const std::string& name) {
    coverage::Ledger ledger(name, false);
    work(ledger);
  });
}

template <typename Work>
void with_verdicts(const std::string& path, Work work) {
  with_own_database(path, [&](const std::string& name) {
    detect::VerdictDatabase verdicts(name, detect::VerdictDatabase::Access::kRead);
    work(verdicts);
  });
}

}  // namespace corvane::health
