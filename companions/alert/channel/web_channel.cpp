#include "companions/alert/channel/web_channel.h"

#include <jansson.h>

#include <utility>

#include "platform/c_handles.h"
#include "util/curl_client.h"
#include "util/json.h"

namespace corvane::alert {

namespace {

constexpr char kPath[] = "corvane/wui/anomalies";

std::string body_of(const Message& message) {
  return R"({"data":{"type":"anomaly","id":)" + without_nul(quoted_json(message.anomaly_id)) +
         R"(,"attributes":)" + document_of(message) + "}}";
}

// After a repetition with the other certificate the client counts any answer as a success.
bool says_taken(const std::string& answer) {
  const JsonPtr root(json_loadb(answer.data(), answer.size(), 0, nullptr));
  return json_is_object(json_object_get(root.get(), "data"));
}

}  // namespace

WebChannel::WebChannel(std::string master) : master_(std::move(master)) {}

SendResult WebChannel::send(const Message& message) {
  if (master_.empty()) return {false, "no master server is known"};
  CurlClient client(master_, kPath, REST_POST, body_of(message));
  const int result = client.execute();
  if (result >= 100) return {false, "HTTP status " + std::to_string(result)};
  if (result != 0) return {false, "transfer failed, libcurl's code " + std::to_string(result)};
  if (!says_taken(client.get_response())) {
    return {false, "the answer does not say that it was taken"};
  }
  return {true, ""};
}

}  // namespace corvane::alert
