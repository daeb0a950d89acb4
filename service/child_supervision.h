// Starting and stopping the companion daemons, "cvanomalydetect" and "cvanomalyalert".
//
// A companion runs detached, in a session of its own; stopping the service never takes it down by
// itself. Whether one runs is read from the process table each time, no state is kept. Called from
// one thread; the waits, up to about 10 seconds each, block it.
#pragma once

#include <string>

// Brings a companion into the state that `command` ("START" or "STOP") asks for and waits until it
// is in it. 0, or non-zero (logged) for an unknown name or command and for a state not reached in
// time.
int handleChildProc(const char* name, const char* command);

// Launches a companion and returns when its launcher has ended. Without a master server nothing is
// started. A fork that fails ends this process with status 1.
void startProcessByName(std::string name);

// 0 when no process of the name is left, 1 when one still runs after the waiting.
int stopProcessByName(std::string name);

// Wait for a process of the name to appear, or for all to go. 0, or 1 after 10 looks, one a second.
int checkProcessStartWithRetry(std::string name);
int checkProcessStopWithRetry(std::string name);

// The number of running processes of the name, this one not counted.
unsigned checkProcess(std::string name);

namespace corvane {

// The shell command lines that start the companions.
std::string detect_command_line();
std::string alert_command_line(const std::string& master_server);

}  // namespace corvane
