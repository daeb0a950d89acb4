#include "gather/jobs_json.h"

#include <stdexcept>

#include "platform/debug_log.h"
#include "platform/json_memory.h"
#include "platform/program_names.h"

namespace corvane {

JsonPtr load_jobs_json(const std::string& text, json_type root_type) {
  JsonPtr root = load_json(text);
  if (root && json_typeof(root.get()) == root_type) return root;
  logmsgf(kLogError, kManagementProgram, "JSON parsing failed for jobs data %s", text.c_str());
  throw std::runtime_error(root ? "JSON parsing failed for jobs data."
                                : "Job details not available.");
}

}  // namespace corvane
