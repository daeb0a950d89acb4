// qpgetconfig: prints the configuration of the host's server.

#include <cerrno>
#include <cstring>
#include <fstream>

#include "embedded_host/json_writer.h"
#include "embedded_host/text_output.h"
#include "embedded_host/tool_options.h"

namespace {

constexpr const char* kDefaultFile = "/usr/tessel/var/global/qp.conf";

constexpr std::string_view kUsage =
    "usage: qpgetconfig -M SERVER [--config FILE]\n"
    "Prints the server's configuration, a line \"KEY = value\" for each key that is set, such as\n"
    "ANOMALY_PROXY_SERVER = host. A host on one machine has one configuration, whatever SERVER "
    "is.\n"
    "  --config FILE  the file with lines \"KEY = value\"; empty lines and lines that begin with "
    "#\n"
    "                 are ignored; default: /usr/tessel/var/global/qp.conf. If the file does not\n"
    "                 exist, nothing is set.\n";

constexpr corvane::host::OptionForm kForms[] = {{"-M", true, true}, {"--config", true, false}};

std::string trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(" \t\r");
  if (begin == std::string::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

// "KEY = value" for a line of the file, or nothing if it sets no key.
std::string setting(const std::string& line, const std::string& place) {
  const std::string text = trimmed(line);
  if (text.empty() || text.front() == '#') return {};
  const std::size_t equals = text.find('=');
  const std::string key = trimmed(text.substr(0, equals));
  if (equals == std::string::npos || key.empty() || key.find_first_of(" \t") != std::string::npos) {
    throw std::runtime_error(place + ": not 'KEY = value': '" + corvane::host::printable(text) +
                             "'");
  }
  return key + " = " + trimmed(text.substr(equals + 1)) + "\n";
}

void print_settings(const std::string& path) {
  std::ifstream file(path);
  if (!file) {
    if (errno == ENOENT) return;
    throw std::runtime_error(path + ": " + std::strerror(errno));
  }
  std::string wrong;  // the first bad line; valid lines are printed nevertheless
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    try {
      corvane::host::write_all(stdout, setting(line, path + ":" + std::to_string(number)));
    } catch (const std::system_error&) {
      throw;
    } catch (const std::runtime_error& error) {
      if (wrong.empty()) wrong = error.what();
    }
  }
  if (file.bad()) throw std::runtime_error(path + ": cannot be read");
  if (!wrong.empty()) throw std::runtime_error(wrong);
}

}  // namespace

int main(int argc, char** argv) {
  using namespace corvane::host;
  return run_tool(argc, argv, kUsage, kForms, [](const ToolOptions& options) {
    if (options.text("-M").empty()) throw UsageError("-M: the name of a server is missing");
    print_settings(options.text("--config", kDefaultFile));
  });
}
