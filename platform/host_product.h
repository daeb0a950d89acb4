// What the host product tells its services about the machine: where it is installed, which is the
// master server, which account a service runs as.
#pragma once

#include <cstddef>

// The product's master configuration, as last read.
struct MasterConfig {
  int format_version;
  const char* host_name;       // empty if the file names none
  const char* const* servers;  // null-terminated; the first is the master server
};

// Writes the install root, with a trailing "/", into `buffer`. Returns 0, or -1 if it does not fit.
int getCVInstallDir(char* buffer, std::size_t size);

// Reads the master configuration file ("corvane/corvane.conf" below the install root), again on
// every call. Returns 0 if it was read and names at least one server, or -1 if it cannot be read,
// names none, or names one that is not a host name (letters, digits, ".", "-", ":").
int CV_read_master_config();

// The record of the last call of CV_read_master_config, valid until the next call; null if it
// failed.
const MasterConfig* get_master_config_ptr();

// Writes this host's name (the configured one, else the system's) into `buffer`. Returns 0, or -1
// with an empty text if there is none or it does not fit.
int qp_gethostname(char* buffer, std::size_t size);

// Returns 1 if `host_name` is the master server's name, else 0.
int pluma_is_master_server(const char* host_name);

// Marks (1) or unmarks (0) this process as a daemon in its log records.
void pluma_set_corvane_daemon(int is_daemon);

// Prepares this process to run as the product's service account. Makes the product's directory of
// executables the working directory if it exists (its tools are called by relative paths). If run
// as root with an account configured, switches to that account's groups, gid and uid for good. If
// it cannot, the process ends with status 1 and a line on standard error. The same happens to root
// if the configuration file exists but cannot be read, as it may name an account. Returns 0.
int enable_process_for_service_account();
