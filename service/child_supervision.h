// Starting and stopping the companion daemons, "cvanomalydetect" and "cvanomalyalert".
//
// A companion runs detached, in a session of its own; the end of the service does not end it.
// Whether it is running is read from the process table each time; no state is kept. Called from one
// thread, which is blocked by the waits, up to about 10 seconds each.
#pragma once

#include <string>

// Starts or stops a companion as `command` ("START" or "STOP") says, and waits until it is running
// or has ended. Returns 0, or non-zero (logged) for an unknown name or command, or if the state is
// not reached in time.
int handleChildProc(const char* name, const char* command);

// Launches a companion and returns when its launcher has ended. Without a master server nothing is
// started. If a fork fails, this process ends with status 1.
void startProcessByName(std::string name);

// Returns 0 if no process of the name is left, 1 if one is still running after the wait.
int stopProcessByName(std::string name);

// Wait until a process of the name appears, or until all have ended. Return 0, or 1 after 10 looks,
// one per second.
int checkProcessStartWithRetry(std::string name);
int checkProcessStopWithRetry(std::string name);

// The number of running processes of the name, without this one.
unsigned checkProcess(std::string name);

namespace corvane {

// The shell command lines that start the companions.
std::string detect_command_line();
std::string alert_command_line(const std::string& master_server);

}  // namespace corvane
