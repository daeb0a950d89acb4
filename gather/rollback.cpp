#include "gather/rollback.h"

#include <exception>

#include "platform/debug_log.h"

namespace corvane {

void roll_back(Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess& db, const char* tag) {
  try {
    db.rollback_transaction();
  } catch (const std::exception& error) {
    logmsg(kLogError, tag, error.what());
  }
}

}  // namespace corvane
