#include "operator_tool/told.h"

#include <algorithm>
#include <array>

#include "companions/alert/message.h"
#include "operator_tool/alert_database.h"

namespace corvane::ctl {

namespace {

constexpr char kSql[] =
    "SELECT d.channel, d.kind, d.state, d.created, d.reason FROM incident i "
    "JOIN delivery d ON d.incident = i.id WHERE i.name = ? ORDER BY d.message, d.channel";

std::string words_for(std::int64_t state) {
  constexpr std::array kWords{"waiting", "in a summary", "taken", "given up", "replaced"};
  return state >= 0 && state < std::ssize(kWords) ? kWords.at(static_cast<std::size_t>(state))
                                                  : "unknown";
}

}  // namespace

std::vector<Told> read_told(const Options& options, const std::string& incident) {
  std::vector<Told> all;
  try {
    with_alert_database(options, [&](alert::StateDatabase& state) {
      Query& rows = state.query(kSql).bind(incident);
      while (rows.step()) {
        const auto kind = static_cast<alert::Kind>(std::clamp<std::int64_t>(
            rows.integer(1), 0, static_cast<std::int64_t>(alert::Kind::kTest)));
        all.push_back({rows.text(0), alert::kind_name(kind), words_for(rows.integer(2)),
                       rows.integer(3), rows.text(4)});
      }
    });
  } catch (const Trouble&) {
    all.clear();  // status says why
  }
  return all;
}

}  // namespace corvane::ctl
