#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "companions/common/error_text.h"
#include "companions/common/program_log.h"
#include "coverage/commands.h"
#include "coverage/gather_again.h"
#include "coverage/job_lister.h"
#include "coverage/options.h"
#include "platform/console.h"
#include "platform/host_product.h"
#include "platform/program_names.h"
#include "platform/service_account.h"
#include "platform/standard_descriptors.h"

using corvane::kHealProgram;

namespace {

// Whatever it creates beside the database must not belong to root: the timer's look runs as the
// service account.
void take_owner_of_database(const corvane::coverage::Options& options) {
  for (const std::string& path : {options.database_path(), options.database_location}) {
    if (access(path.c_str(), F_OK) != 0) continue;
    const std::string failure = corvane::take_owner(path);
    if (failure.empty()) return;
    corvane::write_console_error(std::string(kHealProgram) + ": " + failure + "\n");
    std::exit(1);
  }
}

int dispatch(const corvane::coverage::Options& options) {
  using Mode = corvane::coverage::Options::Mode;
  switch (options.mode) {
    case Mode::kLook:
      return run_look(options);
    case Mode::kGather:
      return gather_by_hand(options);
    case Mode::kGatherAgain:
      gather_into(options.database_location, options.range);
      return 0;
    case Mode::kListJobs:
      list_jobs_into(options.database_location, options.range);
      return 0;
    case Mode::kRun:
      return run_companion(options);
    case Mode::kHelp:
      break;
  }
  corvane::write_console(corvane::coverage::usage());
  return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  const corvane::StandardDescriptorsFilled filled;
  corvane::coverage::Options options;
  const std::string error = corvane::coverage::parse_options(argc - 1, argv + 1, options);
  if (!error.empty()) {
    corvane::write_console_error(error + "\n" + corvane::coverage::usage());
    return 2;
  }
  umask(027);
  if (options.mode != corvane::coverage::Options::Mode::kHelp) {
    enable_process_for_service_account();
    take_owner_of_database(options);
    corvane::open_program_log(kHealProgram);
  }
  return corvane::guarded(kHealProgram, [&] { return dispatch(options); });
}
