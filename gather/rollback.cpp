#include "gather/rollback.h"

#include "platform/debug_log.h"
#include "sqlite/sqlite_exception.h"

namespace corvane {

using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;

void roll_back(Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess& db, const char* tag) {
  try {
    db.rollback_transaction();
  } catch (const sqlite_exception& error) {
    logmsg(16, tag, error.what());
  }
}

}  // namespace corvane
