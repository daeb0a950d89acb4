#include "operator_tool/stream_rows.h"

namespace corvane::ctl {

void spell_stream(const Query& row, std::string& spelling) {
  spelling.clear();
  for (int i = kKeyColumn; i < kKeyColumn + kStreamKeyColumns; ++i) {
    spelling += row.view(i);
    spelling += '\0';
  }
}

}  // namespace corvane::ctl
