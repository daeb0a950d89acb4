// The product's web service without its transport: a request in, an answer out.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "embedded_host/collection.h"
#include "embedded_host/reader_pool.h"

namespace corvane::host {

// The type of a client, from its certificate.
enum class ClientType { kUnknown, kHost, kService };
std::string_view client_type_name(ClientType type);

enum class AcceptedClients { kHost, kService, kBoth };

struct WebRequest {
  std::string method;
  std::string target;  // "/corvane/admin/jobs?...", as received
  std::string body;
  ClientType client = ClientType::kUnknown;
};

struct WebReply {
  int status = 200;
  std::string body = {};   // JSON
  std::string allow = {};  // for 405: the supported methods
};

// The reply for an error: {"error":{"status":400,"reason":"...","where":"..."}}; "where" is omitted
// if empty.
WebReply error_reply(int status, std::string_view reason, std::string_view where = {});

// Answers from a catalog. Thread-safe.
class WebService {
 public:
  // A job is shown as done `close_delay` seconds after its end; its image appears at its end.
  // `stopping` ends running queries. Throws CatalogError if the catalog cannot be read.
  WebService(const std::string& catalog, AcceptedClients accepted, std::int64_t close_delay,
             const std::atomic<bool>& stopping);

  bool accepts(ClientType client) const;

  // `now` is in seconds since the epoch. Never throws for a bad request or a failure of the
  // catalog: those are replies with status 400 and above.
  WebReply answer(const WebRequest& request, std::int64_t now);

 private:
  WebReply read(const Collection& collection, std::string_view id, std::string_view query,
                std::int64_t now);
  WebReply take_report(const std::string& body);

  std::string catalog_;
  AcceptedClients accepted_;
  std::int64_t close_delay_;
  ReaderPool readers_;
};

}  // namespace corvane::host
