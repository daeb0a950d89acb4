#include <sqlite3.h>
#include <sys/stat.h>

#include <clocale>

#include "operator_tool/run.h"
#include "platform/standard_descriptors.h"

int main(int argc, char* argv[]) {
  const corvane::StandardDescriptorsFilled filled;
  std::setlocale(LC_CTYPE, "");          // what the terminal can show
  sqlite3_config(SQLITE_CONFIG_URI, 1);  // databases are named with how they are opened
  umask(022);
  return corvane::ctl::run(argc, argv);
}
