// cvdeployutil: archives a part of the host's image list for programs that read it later.

#include <ctime>

#include "embedded_host/archive.h"
#include "embedded_host/catalog.h"
#include "embedded_host/tool_options.h"
#include "platform/host_product.h"
#include "platform/install_root.h"

namespace {

constexpr std::string_view kUsage =
    "usage: cvdeployutil -d START -e END [--master NAME] [--root DIR] [--catalog FILE]\n"
    "Writes an archive of the images from START to END (seconds since 1970, UTC, both included),\n"
    "and prints its path. The archive is a folder with master.txt, gather_options.json and\n"
    "qpimagelist.out; it is renamed to its final name once it is complete.\n"
    "  --master NAME  the master server's name; default: from the master configuration\n"
    "  --root DIR     the folder of archives; default: var/global/incremental below the install "
    "root\n"
    "  --catalog FILE the host's catalog; default: /usr/tessel/var/global/catalog.db\n";

constexpr corvane::host::OptionForm kForms[] = {{"-d", true, true},
                                                {"-e", true, true},
                                                {"--master", true, false},
                                                {"--root", true, false},
                                                {"--catalog", true, false}};

std::string configured_master() {
  if (CV_read_master_config() != 0) {
    throw std::runtime_error("the master configuration names no master server; see --master");
  }
  return get_master_config_ptr()->servers[0];
}

std::string default_root() { return std::string(corvane::kInstallRoot) + "var/global/incremental"; }

}  // namespace

int main(int argc, char** argv) {
  using namespace corvane::host;
  return run_tool(argc, argv, kUsage, kForms, [](const ToolOptions& options) {
    ArchiveRequest request{.start = options.integer("-d"),
                           .end = options.integer("-e"),
                           .master = options.text("--master"),
                           .root = options.text("--root")};
    if (request.start > request.end) throw UsageError("-d is after -e");
    if (request.master.empty()) request.master = configured_master();
    if (request.root.empty()) request.root = default_root();
    auto catalog = open_catalog(options.text("--catalog", kDefaultCatalog),
                                corvane::Connection::Access::kRead);
    std::printf("%s\n", write_archive(catalog, request, std::time(nullptr)).c_str());
  });
}
