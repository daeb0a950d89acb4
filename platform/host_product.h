// What the host product tells its services about the machine they run on: where it is installed,
// who the master server is, which account a service runs under.
#pragma once

#include <cstddef>

// The product's master configuration, as read last.
struct MasterConfig {
  int format_version;
  const char* host_name;       // empty when the file names none
  const char* const* servers;  // null-terminated; the first is the master server
};

// Writes the install root, with a trailing "/", into `buffer`. Returns 0, or -1 when it does not
// fit.
int getCVInstallDir(char* buffer, std::size_t size);

// Reads the master configuration file ("corvane/corvane.conf" below the install root), afresh on
// every call. Returns 0 when it was read and names at least one server, and -1 when it cannot be
// read, names none, or names one that is not a host name (letters, digits, ".", "-", ":").
int CV_read_master_config();

// The record of the last call of CV_read_master_config, valid until the next; null when that
// failed.
const MasterConfig* get_master_config_ptr();

// Writes this host's name (the configured one, else the system's) into `buffer`. Returns 0, or -1
// with an empty text when there is none or it does not fit.
int qp_gethostname(char* buffer, std::size_t size);

// 1 when `host_name` is the master server's name, else 0.
int pluma_is_master_server(const char* host_name);

// Marks (1) or unmarks (0) this process as a daemon in its log records.
void pluma_set_corvane_daemon(int is_daemon);

// Prepares this process to run under the product's service account: makes the product's directory
// of executables the working directory when it exists (its tools are called by relative paths) and,
// when run as root with an account configured, takes that account's groups, gid and uid for good.
// An account that is configured but cannot be taken ends the process with status 1 and a line on
// standard error; so does, for root, a configuration file that is there but cannot be read, as it
// may name an account. Returns 0.
int enable_process_for_service_account();
