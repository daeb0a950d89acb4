#include "service/logging_setup.h"

#include <string>

#include "platform/console.h"
#include "platform/debug_log.h"

int debugFD = -1;

namespace {

constexpr char kProgram[] = "cvanomalymgmt";
constexpr char kLogDirectory[] = "/usr/tessel/corvane/logs";

}  // namespace

int SetupLogging() {
  int status = 0;
  debugFD = open_debug_log(kLogDirectory, kProgram, kProgram, 0644, &status);
  if (status >= 0) return 0;
  corvane::write_console_error("Failed to setup logging at [" + std::string(kLogDirectory) + "/" +
                               kProgram + "]\n");
  return 1;
}
