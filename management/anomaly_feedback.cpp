// The feedback that users gave on reported anomalies, fetched from the product's web service.
#include <stdexcept>

#include "gather/backup_record.h"
#include "management/management_service.h"
#include "platform/c_handles.h"
#include "platform/clock.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"
#include "sqlite/statement.h"
#include "util/curl_client.h"

using corvane::kLogError;
using corvane::kManagementProgram;

namespace {

const std::string kInsertFeedback =
    "INSERT OR REPLACE INTO ANOMALY_DATA_FEEDBACK VALUES ( ?, ?, ? ); ";

}  // namespace

void ManagementService::capture_anomaly_feedback() {
  std::string response;
  if (get_anomaly_feedback_response(response) != 0) return;
  std::vector<FeedbackRecord> records;
  try {
    parse_anomaly_feedback(response, records);
  } catch (...) {
    logmsgf(kLogError, kManagementProgram, "Failed to parse user feedback response %s",
            response.c_str());
    return;
  }
  const int capture_time = static_cast<int>(corvane::now());
  for (const FeedbackRecord& record : records) {
    const auto type = record.find("type");
    const auto id = record.find("id");
    if (type == record.end() || id == record.end() || type->second != "anomalyFeedback") continue;
    const auto feedback = record.find("feedback");
    const int false_positive =
        feedback != record.end() && feedback->second == "FALSE_POSITIVE" ? 1 : 0;
    try {
      Altamir::Corvane::UsageReporting::SQLiteDatabase::Statement insert(m_db->get_db_handle(),
                                                                         kInsertFeedback);
      insert.bind(1, id->second);
      insert.bind(2, false_positive);
      insert.bind(3, capture_time);
      m_db->execute_query_prepared(insert);
    } catch (...) {
      logmsgf(kLogError, kManagementProgram, "Failed to capture user feedback for anomaly id %s",
              id->second.c_str());
    }
  }
}

int ManagementService::get_anomaly_feedback_response(std::string& response) {
  try {
    CurlClient client(m_master_server, "corvane/wui/anomalies", REST_GET, "");
    if (const int result = client.execute(); result != 0) {
      logmsgf(kLogError, kManagementProgram,
              "Failed to get user feedback response from API. API return code - %d", result);
      return 1;
    }
    response = client.get_response();
    return 0;
  } catch (...) {
    logmsgf(kLogError, kManagementProgram, "Failed to get user feedback response from API");
    return 1;
  }
}

void ManagementService::parse_anomaly_feedback(const std::string& response,
                                               std::vector<FeedbackRecord>& records) {
  const corvane::JsonPtr root(json_loads(response.c_str(), 0, nullptr));
  // The same text as the image parser's: scripts search the log for it here too.
  if (!root) throw std::runtime_error("JSON parsing failed for qpimagelist image.");
  const json_t* data = json_object_get(root.get(), "data");
  for (std::size_t i = 0; i < json_array_size(data); ++i) {
    parse_anomaly_feedback_data_attributes(json_array_get(data, i), records.emplace_back());
  }
}

void ManagementService::parse_anomaly_feedback_data_attributes(json_t* element,
                                                               FeedbackRecord& record) {
  if (element == nullptr) throw std::runtime_error("JSON parsing failed for qpimagelist frags.");
  corvane::for_each_member(element, [&](std::string_view name, json_t* value) {
    if (name == "attributes") {
      parse_anomaly_feedback_data_attributes(value, record);
    } else {
      record.emplace(name, corvane::json_value_to_text(value));
    }
  });
}
