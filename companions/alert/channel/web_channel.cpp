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

// After a second attempt with the other certificate the client reports success for any status.
bool is_confirmed(const std::string& reply) {
  const JsonPtr root(json_loadb(reply.data(), reply.size(), 0, nullptr));
  return json_is_object(json_object_get(root.get(), "data"));
}

}  // namespace

WebChannel::WebChannel(std::string master) : master_(std::move(master)) {}

SendResult WebChannel::send(const Message& message) {
  if (master_.empty()) return {false, "the master server is unknown: corvane.conf names none"};
  CurlClient client(master_, kPath, REST_POST, body_of(message));
  const int result = client.execute();
  if (result >= 100) return {false, "HTTP status " + std::to_string(result)};
  if (result != 0)
    return {false, "the request failed with libcurl error " + std::to_string(result) +
                       "; see EXIT CODES in curl(1)"};
  if (!is_confirmed(client.get_response())) {
    return {false, "the reply does not confirm the delivery"};
  }
  return {true, ""};
}

}  // namespace corvane::alert
