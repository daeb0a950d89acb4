// Where the service's files lie, and whether this host is the one to run it.
//
// Nothing here throws on purpose. What is not known comes back as an empty text or leaves the out
// argument as it was. Called from one thread before there are others, and from that one afterwards.
#pragma once

#include <string>

// The database directory, once getDBLocation has found it out; empty until then.
extern std::string dbLogPath;

// The database directory, without a trailing "/"; "" when the install directory is unknown.
std::string getDBLocation();

// The path of "anomaly_config.conf". 0, or 1 when the database directory is unknown.
int getConfigFilePath(std::string& path);

// This host's name.
void get_host_name(std::string& name);

// The master server's name; `name` is left unchanged when it cannot be found out (logged).
void getMasterServerName(std::string& name);

// True when this host is the master server.
bool IsMasterServer();

// The full path of the product's configuration tool, or "".
std::string getqpgetconfigPath();

// The server that the product's configuration names to run anomaly detection, as its tool says;
// `name` is left unchanged when it names none. Waits for the tool.
void getAnomalyServerName(std::string& name);

// True when the service is meant to run on another host: on the configured anomaly server, and
// without one on the master server.
bool isAnomalyRunningOnDiffServer();
