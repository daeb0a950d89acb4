#include "companions/common/program_log.h"

#include <climits>
#include <string>

#include "platform/debug_log.h"
#include "platform/host_product.h"

namespace corvane {

void open_program_log(const char* program) {
  char install_dir[PATH_MAX];
  if (getCVInstallDir(install_dir, sizeof install_dir) != 0) return;
  int status{};
  const std::string directory = std::string(install_dir) + "corvane/logs";
  open_debug_log(directory.c_str(), program, program, 0644, &status);
}

}  // namespace corvane
