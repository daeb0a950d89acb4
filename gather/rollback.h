// Leaving a transaction that something has gone wrong in.
#pragma once

#include "sqlite/db_access.h"

namespace corvane {

// Rolls back. SQLite may have done so by itself (a full disk); then, as for any failure, the error
// is logged under `tag` and the caller goes on with its next piece of work.
void roll_back(Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess& db, const char* tag);

}  // namespace corvane
