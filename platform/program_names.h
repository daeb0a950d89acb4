// The names of the system's programs.
//
// The same name is used for the binary, the process in the process table, the file of the debug log
// and the tag of the program's records in it.
#pragma once

namespace corvane {

inline constexpr char kManagementProgram[] = "cvanomalymgmt";   // the service
inline constexpr char kDetectionProgram[] = "cvanomalydetect";  // finds the anomalous backups
inline constexpr char kAlertProgram[] = "cvanomalyalert";       // notifies people of them
inline constexpr char kHealProgram[] = "cvanomalyheal";         // gathers what is missing
inline constexpr char kOperatorProgram[] = "cvanomalyctl";      // the operator's tool; has no log

}  // namespace corvane
