// The line and exit status that monitoring reads.
#pragma once

#include <string>
#include <vector>

#include "health/problems.h"
#include "operator_tool/ask/picture.h"

namespace corvane::ctl {

enum class CheckStatus { kOk = 0, kWarning = 1, kCritical = 2, kUnknown = 3 };
const char* name_of(CheckStatus status);
CheckStatus status_of(const std::vector<health::Problem>& problems);

struct CheckResult {
  CheckStatus status = CheckStatus::kOk;
  std::vector<health::Problem> problems;  // the worst first
  std::string summary;                    // when there is no problem
  std::string incidents;                  // the ongoing ones; empty: none
  std::string figures;                    // performance data
};

CheckResult judge(const health::Health& health, const health::Thresholds& thresholds);
// Nothing is known: why.
CheckResult unknown(const std::string& why);
// The database is missing or damaged, which is a problem of this name.
CheckResult without_database(const char* name, const std::string& why);

// "2 ongoing incidents (1 critical, 1 warning), the latest of web01"; empty without any.
std::string incidents_words(const Picture& picture);

// "CRITICAL: ...; ...", or "OK: all enabled programs are running, ...".
std::string verdict_of(const CheckResult& result);

// "ANOMALY WARNING - ... | figures", one line; as JSON when `json`.
std::string text_of(const CheckResult& result, bool json);

}  // namespace corvane::ctl
