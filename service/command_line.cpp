#include "service/command_line.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <string_view>

#include "platform/console.h"
#include "platform/debug_log.h"
#include "platform/host_product.h"
#include "platform/program_names.h"
#include "service/host_role.h"
#include "service/service_control.h"

using corvane::kLogError;
using corvane::kLogEvent;
using corvane::kManagementProgram;

namespace {

constexpr char kDisplayName[] = "Corvane Anomaly Detection Management Service";
// "-terminate_data_gather" has a handler but is not offered: it stays out of this list.
constexpr std::array<std::string_view, 5> kValidOptions{"-start", "-stop", "-terminate", "-h",
                                                        "-help"};

int start_service() {
  const int result = StartSvc(kDisplayName);
  if (result == 0) {
    corvane::write_console("\nSuccessfully started the service\n");
    logmsg(kLogEvent, kManagementProgram, "Successfully started the service");
  } else {
    corvane::write_console("\nFailed to Start the service\n");
    logmsg(kLogError, kManagementProgram, "Failed to Start the service");
  }
  return result;
}

int stop_service() {
  const int result = StopSvc(kDisplayName);
  if (result != 0) {
    corvane::write_console("\nFailed to Stop the service\n");
    logmsg(kLogError, kManagementProgram, "Failed to Stop the service");
  }
  // Printed after a failure too: scripts wait for this line in either case.
  corvane::write_console("\nSuccessfully stopped the service\n");
  logmsg(kLogEvent, kManagementProgram, "Successfully stopped the service");
  return result;
}

}  // namespace

corvane::OptionMap corvane::scan_options(ACE_Arg_Shifter& arguments) {
  OptionMap options;
  while (arguments.is_anything_left()) {
    if (!arguments.is_option_next()) {
      arguments.consume_arg();
      continue;
    }
    const std::string option = arguments.get_current();
    arguments.consume_arg();
    // The value stays in place; the next round skips it as a stray word.
    if (arguments.is_parameter_next()) {
      options.emplace(option, std::pair(true, std::string(arguments.get_current())));
    } else {
      options.emplace(option, std::pair(false, std::string()));
    }
  }
  return options;
}

int validate_params(const corvane::OptionMap& options) {
  if (options.size() != 1) return 0;
  const auto& [option, value] = *options.begin();
  const bool valid =
      std::find(kValidOptions.begin(), kValidOptions.end(), option) != kValidOptions.end();
  return valid && !value.first ? 1 : 0;
}

void display_usage() {
  corvane::write_console(
      "\n"
      "cvanomalymgmt [-start | -stop | -terminate | [-h | -help]]"
      "\n\nWhere:"
      "\n  -start     : Starts Anomaly management service."
      "\n  -stop      : Stops Anomaly management service."
      "\n  -terminate : Forcefully terminates Anomaly management service."
      "\n\n  -h | -Help : Print command line help."
      "\n\n");
}

int corvane::request_gather_termination() {
  std::ofstream request(getDBLocation() + "/terminate_gather", std::ios::trunc);
  if (request.is_open()) return 0;
  write_console(
      "\nCould not initiate data gather terminate operation. Please terminate data gather "
      "manually.");
  return 1;
}

int corvane::dispatch(const OptionMap& options) {
  if (options.contains("-start")) return start_service();
  if (options.contains("-stop")) return stop_service();
  if (options.contains("-terminate")) return TerminateSVC();
  if (options.contains("-terminate_data_gather")) return request_gather_termination();
  return 1;
}

int corvane::run_command_line(int argc, char* argv[]) {
  umask(022);
  enable_process_for_service_account();
  ACE_Arg_Shifter arguments(argc, argv);
  if (!arguments.is_anything_left()) {
    write_console_error("\nError: Invalid arguments received.\n");
    return 1;
  }
  const OptionMap options = scan_options(arguments);
  if (validate_params(options) == 0 || options.contains("-help") || options.contains("-h")) {
    display_usage();
    return 0;
  }
  if (SetupLogging() != 0) {
    write_console("Failed to setup logging\n");
    return 1;
  }
  return dispatch(options);
}
