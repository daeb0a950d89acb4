// Leaving a failed transaction.
#pragma once

#include "sqlite/db_access.h"

namespace corvane {

// Rolls back. SQLite may already have done so (a full disk). Then, as for any failure, the error is
// logged under `tag`, and the caller goes on with its next task.
void roll_back(Altamir::Corvane::UsageReporting::SQLiteDatabase::DBAccess& db, const char* tag);

}  // namespace corvane
