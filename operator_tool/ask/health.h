// Health of the service, its companions and its database, for status, check, metrics and report.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "companions/alert/delivery/outbox.h"
#include "companions/detect/judge.h"
#include "operator_tool/ask/database.h"
#include "operator_tool/ask/gather_log.h"
#include "operator_tool/ask/machine.h"
#include "operator_tool/options.h"

namespace corvane::ctl {

struct Daemon {
  std::string name;
  bool is_wanted = true;  // by the configuration
  pid_t process = 0;      // the one that began first; 0: it is not running
  std::int64_t since = 0;
  std::int64_t log_bytes = 0;
};

// What the configuration file says; read as the programs do: without one, the defaults.
struct Configured {
  bool service = true;
  bool detection = true;
  bool alerts = true;
  int interval_minutes = 15;
  detect::Settings detect;
};
// Throws Trouble when it may not be read.
Configured read_configuration(const std::string& path);

struct GatherHealth {
  std::int64_t last = 0;  // when the last gather began; 0: the history is not gathered yet
  std::int64_t next = 0;  // expected; 0: none, the service is not running
  std::int64_t queued = 0;
  GatherLog log;
};

struct AlertHealth {
  bool is_known = false;  // the alerts have a database
  std::string trouble;    // why it cannot be read; empty: it can
  std::vector<alert::ChannelStatus> channels;

  std::int64_t waiting() const;
  std::int64_t given_up() const;
  std::int64_t oldest() const;  // since when a message has waited; 0: none does
  std::int64_t due() const;     // the same without quiet hours; may lie ahead
};

struct Health {
  std::int64_t now = 0;
  Configured configured;
  std::vector<Daemon> daemons;  // the service first
  GatherHealth gather;
  AlertHealth alerts;
  std::int64_t database_bytes = 0;  // with its write-ahead log
  DiskSpace disk;

  const Daemon& service() const { return daemons.front(); }
};

Health look(const Options& options, Database& database);

}  // namespace corvane::ctl
