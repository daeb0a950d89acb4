#include "health/configured.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <vector>

#include "companions/detect/settings_file.h"
#include "config/configuration.h"
#include "config/service_values.h"
#include "config/setting_values.h"
#include "health/database.h"
#include "health/machine.h"

namespace corvane::health {

namespace {

constexpr std::string_view kBlank = " \t\r\n\v\f";

// A value that is neither 0 nor 1 disables nothing: the service does not start with it, and people
// have to see that.
bool is_set(Configuration& file, const Setting& flag) {
  return switch_value(flag, value_of(file, flag)) == 1;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlank);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlank) - begin + 1);
}

bool is_well_formed(std::string_view line) {
  line = trimmed(line);
  if (line.empty() || line.front() == ';' || line.front() == '#') return true;
  if (line.front() == '[') return line.back() == ']';
  return line.find('=') != std::string_view::npos;
}

std::string trouble_with(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  const std::int64_t line = malformed_line(text.str());
  if (line == 0) return path + " cannot be read";
  return path + " is malformed in line " + std::to_string(line);
}

// What the account may do itself is better known than what the file's mode says.
bool is_unreadable(uid_t account, const std::string& path, bool is_denied) {
  if (is_denied && geteuid() == 0) return true;
  return geteuid() == account ? is_denied : !may_read(account, path);
}

}  // namespace

std::int64_t malformed_line(std::string_view text) {
  for (std::int64_t number = 1; !text.empty(); ++number) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    if (!is_well_formed(text.substr(0, end))) return number;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return 0;
}

Configured read_configuration(const std::string& path, std::optional<uid_t> account) {
  Configured configured;
  errno = 0;
  const bool is_readable = access(path.c_str(), R_OK) == 0;
  const bool is_denied = !is_readable && errno == EACCES;
  if (account && is_unreadable(*account, path, is_denied)) {
    configured.trouble = path + " cannot be read by the service account";
    return configured;
  }
  // With defaults in its place, check would not notice that a companion is not running.
  if (is_denied) throw permission_denied(path);
  configured.has_file = is_readable;
  configured.changed = changed_at(path);
  Configuration file(path, 1);
  if (configured.has_file && !file.is_imported()) configured.trouble = trouble_with(path);
  configured.service = !is_set(file, setting::kDisableAnomalyDetection);
  configured.detection = configured.service && !is_set(file, setting::kDisableDetectionService);
  configured.alerts = configured.detection && !is_set(file, setting::kDisableAlertService);
  const std::string interval = value_of(file, setting::kGatherFrequency);
  configured.interval_minutes = std::min(gather_interval_minutes(interval), kMostInterval);
  configured.purge = value_of(file, setting::kPurgeInterval);
  configured.purge_months = purge_interval_months(configured.purge);
  configured.heals = value_or_default(file, setting::kHeal) == "1";
  configured.heartbeat_url = value_or_default(file, setting::kHeartbeatUrl);
  configured.ca_file = value_or_default(file, setting::kCaFile);
  std::vector<std::string> complaints;
  detect::read_settings(path, configured.detect, complaints);
  return configured;
}

}  // namespace corvane::health
