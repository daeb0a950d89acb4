// Where the service's files are, and whether the service is to run on this host.
//
// Nothing here throws on purpose. If something is not known, the result is empty, or the out
// argument is left unchanged. Called from one thread only, first before there are others.
#pragma once

#include <string>

// The database directory, once getDBLocation has found it; empty until then.
extern std::string dbLogPath;

// The database directory, without a trailing "/"; "" if the install directory is unknown.
std::string getDBLocation();

// Finds the path of "anomaly_config.conf". Returns 0, or 1 if the database directory is unknown.
int getConfigFilePath(std::string& path);

// This host's name.
void get_host_name(std::string& name);

// The master server's name; `name` is left unchanged if it cannot be determined (logged).
void getMasterServerName(std::string& name);

// True if this host is the master server.
bool IsMasterServer();

// The full path of the product's configuration tool, or "".
std::string getqpgetconfigPath();

// The server that is to run anomaly detection, as the product's configuration tool prints it;
// `name` is left unchanged if none is configured. Waits for the tool.
void getAnomalyServerName(std::string& name);

// True if the service is to run on another host. It runs on the configured anomaly server, or on
// the master server if none is configured.
bool isAnomalyRunningOnDiffServer();
