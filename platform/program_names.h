// The names of the system's programs.
//
// One name serves as that of the binary, of the process in the process table, of the debug log's
// file and as the tag of the program's records in it.
#pragma once

namespace corvane {

inline constexpr char kManagementProgram[] = "cvanomalymgmt";   // the service
inline constexpr char kDetectionProgram[] = "cvanomalydetect";  // finds the anomalous backups
inline constexpr char kAlertProgram[] = "cvanomalyalert";       // tells people of them
inline constexpr char kOperatorProgram[] = "cvanomalyctl";      // the operator's tool; has no log

}  // namespace corvane
