#include "companions/alert/channel/webhook_channel.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <stdexcept>

#include "companions/alert/channel/curl_transfer.h"
#include "companions/alert/channel/secret_file.h"
#include "config/settings.h"
#include "platform/clock.h"

namespace corvane::alert {

namespace {

constexpr long kSeconds = 30;

}  // namespace

std::string webhook_signature(const std::string& secret, std::int64_t now,
                              const std::string& body) {
  const std::string time = std::to_string(now);
  const std::string signed_text = time + "." + body;
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned length{};
  if (HMAC(EVP_sha256(), secret.data(), static_cast<int>(secret.size()),
           reinterpret_cast<const unsigned char*>(signed_text.data()), signed_text.size(),
           digest.data(), &length) == nullptr) {
    throw std::runtime_error("cannot compute the signature");
  }
  std::string header = "t=" + time + ",v1=";
  constexpr char kHex[] = "0123456789abcdef";
  for (unsigned i = 0; i < length; ++i) {
    header += kHex[digest[i] >> 4];
    header += kHex[digest[i] & 0xF];
  }
  return header;
}

WebhookChannel::WebhookChannel(const Settings& settings, const StopFlag& stop)
    : url_(settings.webhook_url),
      secret_file_(settings.webhook_secret_file),
      ca_file_(settings.ca_file),
      stop_(stop) {}

SendResult WebhookChannel::send(const Message& message) {
  const UrlParts parts = parts_of_url(setting::kWebhookUrl, url_);
  if (parts.scheme != "https" && !(parts.scheme == "http" && parts.is_loopback)) {
    return {false, std::string(setting::kWebhookUrl.key) +
                       " must begin with https:// unless the server is on this machine"};
  }
  const std::string body = document_of(message);
  CurlListPtr headers;
  append(headers, "Content-Type: application/json");
  append(headers, "User-Agent: cvanomalyalert");
  append(headers, "Expect:");
  append(headers, "Corvane-Alert: " + message.alert);
  if (!secret_file_.empty()) {
    append(headers,
           "Corvane-Signature: " + webhook_signature(read_secret(secret_file_), now(), body));
  }
  CurlTransfer transfer(url_, parts.is_loopback ? "http,https" : "https", ca_file_);
  transfer.set(CURLOPT_HTTPHEADER, headers.get());
  transfer.set(CURLOPT_POSTFIELDS, body.c_str());
  transfer.set(CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  const CURLcode code = transfer.perform(kSeconds, stop_);
  // Only the host: the URL's path and query may be secret.
  if (code != CURLE_OK) return {false, parts.host + ": " + transfer.failure(code)};
  const long status = transfer.status();
  if (status / 100 != 2) {
    return {false, parts.host + ": HTTP status " + std::to_string(status)};
  }
  return {true, ""};
}

}  // namespace corvane::alert
