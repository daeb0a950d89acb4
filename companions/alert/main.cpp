#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "companions/alert/commands.h"
#include "companions/alert/daemon.h"
#include "companions/alert/options.h"
#include "companions/common/program_log.h"
#include "platform/console.h"
#include "platform/host_product.h"
#include "platform/program_names.h"
#include "platform/standard_descriptors.h"

using corvane::kAlertProgram;

namespace {

int dispatch(const corvane::alert::Options& options) {
  using Mode = corvane::alert::Options::Mode;
  switch (options.mode) {
    case Mode::kOnce:
      return run_once(options);
    case Mode::kTest:
      return run_test(options);
    case Mode::kStatus:
      return run_status(options);
    case Mode::kResend:
      return run_resend(options);
    case Mode::kHelp:
      corvane::write_console(corvane::alert::usage());
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
  corvane::alert::Options options;
  const std::string error = corvane::alert::parse_options(argc - 1, argv + 1, options);
  if (!error.empty()) {
    corvane::write_console_error(error + "\n" + corvane::alert::usage());
    return 2;
  }
  umask(027);  // what it knows of the backups is not for everybody
  if (options.mode != corvane::alert::Options::Mode::kHelp) {
    enable_process_for_service_account();
    corvane::open_program_log(kAlertProgram);
  }
  // Does not wait for threads whose channel hangs.
  _exit(dispatch(options));
}
