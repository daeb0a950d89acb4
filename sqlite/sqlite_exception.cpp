#include "sqlite/sqlite_exception.h"

namespace Altamir::Corvane::UsageReporting::SQLiteDatabase {

sqlite_exception::sqlite_exception(const std::string& message) : message_(message) {}

sqlite_exception::sqlite_exception(const std::string& message, const std::string& inner_message)
    : message_(message), inner_message_(inner_message) {}

sqlite_exception::sqlite_exception(const std::stringstream& message) : message_(message.str()) {}

sqlite_exception::sqlite_exception(const std::stringstream& message,
                                   const std::string& inner_message)
    : message_(message.str()), inner_message_(inner_message) {}

const char* sqlite_exception::what() const noexcept { return message_.c_str(); }

const std::string& sqlite_exception::inner_message() const noexcept { return inner_message_; }

}  // namespace Altamir::Corvane::UsageReporting::SQLiteDatabase
