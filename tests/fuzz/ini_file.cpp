// INI files: the service's own configuration, the product's master configuration, and the settings
// that the detection takes from the former.
#include <algorithm>

#include "companions/detect/settings_file.h"
#include "config/configuration.h"
#include "config/service_values.h"
#include "config/setting_values.h"
#include "platform/master_config.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/scratch_dir.h"

using corvane::detect::Settings;
using corvane::fuzz::require;
using corvane::test::write_file;
namespace setting = corvane::setting;

namespace {

constexpr int kAnomalyConfiguration = 1;

bool in_file(const std::string& content, const std::string& value) {
  return content.find(value) != std::string::npos;
}

// What stands in the file or is the default; never anything else.
void check_defaults(Configuration& config, const std::string& content, bool readable) {
  for (const corvane::Setting& setting : corvane::all_settings()) {
    const std::string found = corvane::value_of(config, setting);
    if (found == (setting.section->in_configuration ? setting.default_value : "")) continue;
    require(readable, "half a file is no configuration", setting.key);
    require(in_file(content, found) && in_file(content, setting.key), "a value stands in the file",
            found);
  }
  require(config.get_config("NO SUCH SECTION", "").empty(), "what is not there is empty");
}

void check_lists(Configuration& config, const std::string& content) {
  std::map<std::string, std::set<std::string>> lists;
  config.get_config_dynamic_keys_multiple_values("LISTS", lists);
  const std::string lower = Configuration::toLower(content);
  for (const auto& [key, pieces] : lists) {
    require(in_file(lower, key), "a key stands in the file", key);
    for (const std::string& piece : pieces) {
      require(in_file(lower, piece), "a piece stands in the file", piece);
      require(piece.find(',') == std::string::npos, "pieces are apart", piece);
    }
  }
}

// Nothing that names a server gets past this into a command line.
void check_master_settings(const corvane::MasterSettings& settings) {
  if (!settings.has_valid_servers()) return;
  for (const std::string& server : settings.servers) {
    require(server.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                     "0123456789.-:") == std::string::npos &&
                server.front() != '-',
            "a server's name is one word of a shell", server);
  }
}

std::string written(const Settings& settings) {
  const auto line = [](const corvane::Setting& setting, auto value) {
    return std::string("[") + setting.section->name + "]\n" + setting.key + "=" +
           std::to_string(value) + "\n";
  };
  return line(setting::kSensitivity, static_cast<int>(settings.sensitivity)) +
         line(setting::kMinObservations, settings.stream.min_observations) +
         line(setting::kMaxObservations, settings.stream.max_observations) +
         line(setting::kDaysToIgnore, settings.stream.days_to_ignore) +
         line(setting::kPurgeInterval, settings.stream.purge_months);
}

void check_settings(Configuration& config, const std::string& path, const std::string& other_path) {
  Settings settings;
  std::vector<std::string> complaints;
  corvane::detect::read_settings(path, settings, complaints);
  require(complaints.size() <= 5, "a complaint for each value at most");
  require(
      settings.sensitivity >= -100 && settings.sensitivity <= 100 &&
          settings.stream.min_observations >= 2 && settings.stream.min_observations <= 1000000 &&
          settings.stream.max_observations >= 2 && settings.stream.max_observations <= 1000000 &&
          settings.stream.days_to_ignore >= 1 && settings.stream.days_to_ignore <= 100000,
      "settings are within bounds");
  const std::string purge = corvane::value_of(config, setting::kPurgeInterval);
  require(settings.stream.purge_months == corvane::purge_interval_months(purge),
          "what the service purges does not count", purge);
  require(settings.effective_eps() > 0, "the radius is positive");

  write_file(other_path, written(settings));
  Settings again;
  complaints.clear();
  corvane::detect::read_settings(other_path, again, complaints);
  const std::size_t negative = settings.stream.purge_months < 0 ? 1 : 0;
  require(complaints.size() == negative && written(again) == written(settings),
          "settings written anew are read alike");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const corvane::test::ScratchDir scratch;
  static const std::string path = scratch("anomaly_config.conf");
  const std::string content = corvane::fuzz::text_of(data, size);
  write_file(path, content);
  Configuration config(path, kAnomalyConfiguration);
  const auto master = corvane::read_master_settings(path);
  check_defaults(config, content, master.has_value());
  check_lists(config, content);
  if (master) check_master_settings(*master);
  check_settings(config, path, scratch("other.conf"));
  return 0;
}
