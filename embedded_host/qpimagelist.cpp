// qpimagelist: lists the images of the host's catalog.

#include <ctime>

#include "embedded_host/catalog.h"
#include "embedded_host/image_list.h"
#include "embedded_host/tool_options.h"

namespace {

constexpr std::string_view kUsage =
    "usage: qpimagelist -X -d START -e END -json_compact [--catalog FILE]\n"
    "Prints one compact JSON object per line for each backup image from START to END (seconds "
    "since\n"
    "1970, UTC, both included), in order of time, or the line \"no entity was found\".\n"
    "  -X             list the catalog's figures as they are (always the case)\n"
    "  -json_compact  one object per line (always the case)\n"
    "  --catalog FILE the host's catalog; default: /usr/tessel/var/global/catalog.db\n";

constexpr corvane::host::OptionForm kForms[] = {{"-X", false, false},
                                                {"-d", true, true},
                                                {"-e", true, true},
                                                {"-json_compact", false, false},
                                                {"--catalog", true, false}};

}  // namespace

int main(int argc, char** argv) {
  using namespace corvane::host;
  return run_tool(argc, argv, kUsage, kForms, [](const ToolOptions& options) {
    const std::int64_t start = options.integer("-d");
    const std::int64_t end = options.integer("-e");
    auto catalog = open_catalog(options.text("--catalog", kDefaultCatalog),
                                corvane::Connection::Access::kRead);
    write_image_list(catalog, start, end, std::time(nullptr), stdout);
  });
}
