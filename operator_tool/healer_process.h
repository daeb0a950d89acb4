// Starts cvanomalyheal, which alone writes the ledger.
#pragma once

#include <string>
#include <vector>

#include "operator_tool/options.h"

namespace corvane::ctl {

// The program that is installed beside this one.
std::string healer_path();

// The command line of `heal` and of `gather`.
std::vector<std::string> healer_command(const std::string& program, const Options& options);

// Runs it to its end; what it prints on standard output is dropped. Throws Trouble when it cannot
// be started, or fails: it has said why on standard error, and in its log.
void run_healer(const std::vector<std::string>& command);

}  // namespace corvane::ctl
