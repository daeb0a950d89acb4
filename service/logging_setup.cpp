#include "service/logging_setup.h"

#include <string>

#include "platform/console.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"

using corvane::kManagementProgram;

int debugFD = -1;

namespace {

constexpr char kLogDirectory[] = "/usr/tessel/corvane/logs";

}  // namespace

int SetupLogging() {
  int status = 0;
  debugFD = open_debug_log(kLogDirectory, kManagementProgram, kManagementProgram, 0644, &status);
  if (status >= 0) return 0;
  corvane::write_console_error("Failed to setup logging at [" + std::string(kLogDirectory) + "/" +
                               kManagementProgram + "]\n");
  return 1;
}
