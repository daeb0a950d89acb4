// The files of report/ and the chart library, as they were built in.
#pragma once

#include <string_view>

namespace corvane::ctl {

extern const std::string_view kReportPage;
extern const std::string_view kReportStyle;
extern const std::string_view kReportWords;
extern const std::string_view kReportScript;
extern const std::string_view kChartLibrary;

}  // namespace corvane::ctl
