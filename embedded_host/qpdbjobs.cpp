// qpdbjobs: shows jobs of the host.

#include <ctime>

#include "embedded_host/catalog.h"
#include "embedded_host/job_list.h"
#include "embedded_host/tool_options.h"

namespace {

constexpr std::string_view kUsage =
    "usage: qpdbjobs -jobid ID[,ID...] -json [--catalog FILE]\n"
    "Prints a JSON array with an object for each of these jobs that has started, in this order.\n"
    "  -json          print JSON (always the case)\n"
    "  --catalog FILE the host's catalog; default: /usr/tessel/var/global/catalog.db\n";

constexpr corvane::host::OptionForm kForms[] = {
    {"-jobid", true, true}, {"-json", false, false}, {"--catalog", true, false}};

std::vector<std::int64_t> job_ids(std::string_view list) {
  std::vector<std::int64_t> ids;
  while (true) {
    const std::size_t comma = list.find(',');
    ids.push_back(corvane::host::whole_number(list.substr(0, comma), "-jobid"));
    if (comma == std::string_view::npos) return ids;
    list.remove_prefix(comma + 1);
  }
}

}  // namespace

int main(int argc, char** argv) {
  using namespace corvane::host;
  return run_tool(argc, argv, kUsage, kForms, [](const ToolOptions& options) {
    const std::vector<std::int64_t> ids = job_ids(options.text("-jobid"));
    auto catalog = open_catalog(options.text("--catalog", kDefaultCatalog),
                                corvane::Connection::Access::kRead);
    write_job_list(catalog, ids, std::time(nullptr), stdout);
  });
}
