#include "companions/common/error_text.h"

#include "platform/console.h"
#include "platform/debug_log.h"
#include "sqlite/sqlite_exception.h"

namespace corvane {

std::string reason_of(const std::exception& error) {
  using Altamir::Corvane::UsageReporting::SQLiteDatabase::sqlite_exception;
  const auto* of_sqlite = dynamic_cast<const sqlite_exception*>(&error);
  std::string reason = error.what();
  if (of_sqlite == nullptr) return reason;
  const std::string& inner = of_sqlite->inner_message();
  if (reason.find(inner) == std::string::npos) reason += " (" + inner + ")";
  return reason;
}

int guarded(const char* program, const std::function<int()>& work) {
  try {
    return work();
  } catch (const std::exception& error) {
    const std::string text = std::string(program) + ": " + reason_of(error);
    write_console_error(text + "\n");
    logmsg(kLogError, program, text.c_str());
    return 1;
  }
}

}  // namespace corvane
