// The line and exit status that monitoring reads.
#pragma once

#include <string>
#include <vector>

#include "operator_tool/ask/health.h"
#include "operator_tool/options.h"

namespace corvane::ctl {

enum class CheckStatus { kOk = 0, kWarning = 1, kCritical = 2, kUnknown = 3 };
const char* name_of(CheckStatus status);

struct CheckResult {
  CheckStatus status = CheckStatus::kOk;
  std::vector<std::string> problems;  // the worst first
  std::string summary;                // when there is no problem
  std::string figures;                // performance data
};

// Problems: a late gather, a program that is not running, pending messages, dead letters, a disk
// that is nearly full.
CheckResult judge(const Health& health, const Thresholds& thresholds);
CheckResult unknown(const std::string& why);

// "ANOMALY WARNING - ... | figures", one line; as JSON when `json`.
std::string text_of(const CheckResult& result, bool json);

}  // namespace corvane::ctl
