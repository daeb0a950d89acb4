#include "operator_tool/stream_rows.h"

namespace corvane::ctl {

namespace {

constexpr int kFirstText = 1;
constexpr int kTexts = 7;

}  // namespace

void spell_stream(const Query& row, std::string& spelling) {
  spelling.clear();
  for (int i = kFirstText; i < kFirstText + kTexts; ++i) {
    spelling += row.view(i);
    spelling += '\0';
  }
}

detect::StreamKey key_of(const Query& row) {
  return {row.text(1),
          row.text(2),
          fold_policy_type(row.view(3)),
          fold_schedule_type(row.view(4)),
          row.text(5),
          row.text(6),
          row.text(7)};
}

}  // namespace corvane::ctl
