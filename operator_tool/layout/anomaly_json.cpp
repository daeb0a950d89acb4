#include "operator_tool/layout/anomaly_json.h"

#include <utility>

#include "operator_tool/ask/anomalies.h"
#include "operator_tool/layout/json.h"

namespace corvane::ctl {

JsonPtr to_json(const Anomaly& anomaly, JsonPtr details) {
  const Finding& finding = anomaly.finding;
  const auto cause = finding.likeliest_cause();
  JsonPtr object(json_object());
  put(object.get(), "id", anomaly.row.id);
  put(object.get(), "incident", anomaly.incident);
  put(object.get(), "client", finding.stream.client);
  put(object.get(), "policy", finding.stream.policy);
  put(object.get(), "schedule_name", finding.stream.schedule_name);
  put(object.get(), "severity", number_of(finding.severity));
  put(object.get(), "cause", cause ? id_of(*cause) : "");
  put(object.get(), "summary", finding.summary);
  put(object.get(), "backup_id", finding.backup_id);
  put_known(object.get(), "time", finding.time);
  put_known(object.get(), "detected", anomaly.row.detection_time);
  put(object.get(), "state", name_of(anomaly.review()));
  put_known(object.get(), "judged_at", anomaly.row.feedback_time);
  put(object.get(), "told", anomaly.row.status == AnomalyStatus::kProcessed);
  put(object.get(), "details", details != nullptr ? std::move(details) : JsonPtr(json_null()));
  return object;
}

}  // namespace corvane::ctl
