// What a program does with a database of its own that is damaged.
#pragma once

#include <string>

namespace corvane {

// Moves it aside (name + ".damaged"), so that a new one can be made. A failure is ignored: the next
// attempt to open the database says why.
void move_damaged_database_aside(const std::string& path);

}  // namespace corvane
