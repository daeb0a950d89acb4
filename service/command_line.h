// The command line of "cvanomalymgmt".
#pragma once

#include <ace/Arg_Shifter.h>

#include <map>
#include <string>
#include <utility>

#include "service/logging_setup.h"  // declares debugFD and SetupLogging() here too

namespace corvane {

// Option text, with its leading "-", to (has a value, the value).
using OptionMap = std::map<std::string, std::pair<bool, std::string>>;

// Takes the options off the shifter, each with the following word as its value; stray words are
// skipped. If an option occurs twice, the first one counts.
OptionMap scan_options(ACE_Arg_Shifter& arguments);

// Executes the option and returns the program's exit status.
int dispatch(const OptionMap& options);

// The whole program; returns its exit status. `argv` is consumed.
int run_command_line(int argc, char* argv[]);

// Asks a running service in "LIVE_ONLY" mode to end its gather, with a file beside the database.
// Returns the exit status: 0, or 1 with a message if the file cannot be written.
int request_gather_termination();

}  // namespace corvane

// Returns 1 if exactly one option is given, it is known, and it has no value; else 0.
int validate_params(const corvane::OptionMap& options);

void display_usage();
