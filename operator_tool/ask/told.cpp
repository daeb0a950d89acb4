#include "operator_tool/ask/told.h"

#include "health/own_databases.h"

namespace corvane::ctl {

std::vector<alert::ToldMessage> read_told(const Options& options, const std::string& incident) {
  std::vector<alert::ToldMessage> all;
  try {
    health::with_alert_database(options.places().alert_database, [&](alert::StateDatabase& state) {
      all = alert::Outbox(state).told_of(incident);
    });
  } catch (const health::Trouble&) {
    all.clear();  // status says why
  }
  return all;
}

}  // namespace corvane::ctl
