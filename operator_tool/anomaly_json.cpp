#include "operator_tool/anomaly_json.h"

#include "operator_tool/json.h"

namespace corvane::ctl {

JsonPtr json_of(const FoundAnomaly& found) {
  const alert::Anomaly& anomaly = found.anomaly;
  JsonPtr object(json_object());
  put(object.get(), "id", anomaly.id);
  put(object.get(), "incident", anomaly.incident);
  put(object.get(), "client", anomaly.stream.client);
  put(object.get(), "policy", anomaly.stream.policy);
  put(object.get(), "schedule_name", anomaly.stream.schedule_name);
  put(object.get(), "severity", std::int64_t{anomaly.severity});
  put(object.get(), "cause", anomaly.cause);
  put(object.get(), "summary", anomaly.summary);
  put(object.get(), "backup_id", found.backup_id);
  put_known(object.get(), "time", anomaly.time);
  put_known(object.get(), "detected", anomaly.detected);
  put(object.get(), "state", name_of(found.opinion));
  put_known(object.get(), "judged_at", found.judged_at);
  put(object.get(), "told", found.is_processed);
  JsonPtr details(json_loads(anomaly.details.c_str(), 0, nullptr));
  if (details == nullptr) details.reset(json_null());
  put(object.get(), "details", std::move(details));
  return object;
}

}  // namespace corvane::ctl
