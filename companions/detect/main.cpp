#include <sys/stat.h>

#include <string>

#include "companions/common/program_log.h"
#include "companions/detect/daemon.h"
#include "companions/detect/options.h"
#include "platform/console.h"
#include "platform/host_product.h"
#include "platform/program_names.h"
#include "platform/standard_descriptors.h"

using corvane::kDetectionProgram;

namespace {

int dispatch(const corvane::detect::Options& options) {
  using Mode = corvane::detect::Options::Mode;
  switch (options.mode) {
    case Mode::kOnce:
      return run_once(options);
    case Mode::kBacktest:
      return run_backtest(options);
    case Mode::kExplain:
      return run_explain(options);
    case Mode::kHelp:
      corvane::write_console(corvane::detect::usage());
      return 0;
    case Mode::kDaemon:
      break;
  }
  pluma_set_corvane_daemon(1);
  return run_daemon(options);
}

}  // namespace

int main(int argc, char* argv[]) {
  // The service starts its companions with descriptors 0 to 2 closed.
  const corvane::StandardDescriptorsFilled filled;
  corvane::detect::Options options;
  const std::string error = corvane::detect::parse_options(argc - 1, argv + 1, options);
  if (!error.empty()) {
    corvane::write_console_error(error + "\n" + corvane::detect::usage());
    return 2;
  }
  umask(027);  // what it knows of the backups is not for everybody
  if (options.mode != corvane::detect::Options::Mode::kHelp) {
    enable_process_for_service_account();
    corvane::open_program_log(kDetectionProgram);
  }
  return dispatch(options);
}
