#include "operator_tool/ask/told.h"

#include "operator_tool/ask/alert_database.h"

namespace corvane::ctl {

std::vector<alert::ToldMessage> read_told(const Options& options, const std::string& incident) {
  std::vector<alert::ToldMessage> all;
  try {
    with_alert_database(options, [&](alert::StateDatabase& state) {
      all = alert::Outbox(state).told_of(incident);
    });
  } catch (const Trouble&) {
    all.clear();  // status says why
  }
  return all;
}

}  // namespace corvane::ctl
