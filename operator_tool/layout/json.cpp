#include "operator_tool/layout/json.h"

namespace corvane::ctl {

JsonPtr document(const char* command) {
  JsonPtr root(json_object());
  put(root.get(), "schema", std::int64_t{1});
  put(root.get(), "command", command);
  return root;
}

}  // namespace corvane::ctl
