#include "embedded_host/web_service.h"

#include <optional>

#include "embedded_host/catalog.h"
#include "embedded_host/json_writer.h"
#include "platform/c_handles.h"

namespace corvane::host {

namespace {

constexpr std::size_t kMaxReportId = 256;

struct Resource {
  const Collection* collection = nullptr;
  std::string id;  // empty: the collection itself
};

std::optional<Resource> find_resource(std::string_view path) {
  for (const Collection& collection : collections()) {
    if (path == collection.path) return Resource{&collection, {}};
    if (collection.has_single_elements && path.starts_with(collection.path) &&
        path.size() > collection.path.size() + 1 && path[collection.path.size()] == '/') {
      return Resource{&collection, std::string(path.substr(collection.path.size() + 1))};
    }
  }
  return std::nullopt;
}

struct Report {
  std::string id;
  std::string attributes;
};

std::string report_id(const json_t* id) {
  std::string text;
  if (json_is_string(id)) text.assign(json_string_value(id), json_string_length(id));
  if (json_is_integer(id)) text = std::to_string(json_integer_value(id));
  if (text.empty() || text.size() > kMaxReportId) {
    throw BadRequest("neither a text of 1 to 256 bytes nor a whole number", "body, data.id");
  }
  return text;
}

Report parse_report(const std::string& body) {
  json_error_t error;
  const JsonPtr root(json_loadb(body.data(), body.size(), JSON_REJECT_DUPLICATES, &error));
  if (root == nullptr) {
    throw BadRequest(
        "not JSON: " + printable(error.text),
        "body, line " + std::to_string(error.line) + ", character " + std::to_string(error.column));
  }
  const json_t* data = json_object_get(root.get(), "data");
  if (!json_is_object(data)) throw BadRequest("not an object", "body, data");
  const char* type = json_string_value(json_object_get(data, "type"));
  if (type == nullptr || type != kAnomaly) throw BadRequest("not 'anomaly'", "body, data.type");
  const json_t* attributes = json_object_get(data, "attributes");
  if (!json_is_object(attributes)) throw BadRequest("not an object", "body, data.attributes");

  struct Free {
    void operator()(char* text) const noexcept { std::free(text); }
  };
  const std::unique_ptr<char, Free> text(json_dumps(attributes, JSON_COMPACT));
  if (text == nullptr) throw std::bad_alloc();
  return {report_id(json_object_get(data, "id")), std::string(text.get())};
}

WebReply method_reply(const char* allow) {
  WebReply reply = error_reply(405, "this path does not support the method");
  reply.allow = allow;
  return reply;
}

}  // namespace

std::string_view client_type_name(ClientType type) {
  switch (type) {
    case ClientType::kHost:
      return "host";
    case ClientType::kService:
      return "service";
    case ClientType::kUnknown:
      break;
  }
  return "unknown";
}

WebReply error_reply(int status, std::string_view reason, std::string_view where) {
  WebReply reply{.status = status, .body = "{\"error\":"};
  JsonObject error(reply.body);
  error.add("status", std::int64_t{status});
  error.add("reason", reason);
  if (!where.empty()) error.add("where", where);
  error.close();
  reply.body += '}';
  return reply;
}

WebService::WebService(const std::string& catalog, AcceptedClients accepted,
                       std::int64_t close_delay, const std::atomic<bool>& stopping)
    : catalog_(catalog),
      accepted_(accepted),
      close_delay_(close_delay),
      readers_(catalog, stopping) {
  readers_.borrow();  // fails at once if the catalog cannot be read
}

bool WebService::accepts(ClientType client) const {
  switch (client) {
    case ClientType::kHost:
      return accepted_ != AcceptedClients::kService;
    case ClientType::kService:
      return accepted_ != AcceptedClients::kHost;
    case ClientType::kUnknown:
      return false;
  }
  return false;
}

WebReply WebService::answer(const WebRequest& request, std::int64_t now) try {
  if (!accepts(request.client)) {
    return error_reply(401, "certificates of type '" +
                                std::string(client_type_name(request.client)) +
                                "' are not accepted");
  }
  const std::string_view target(request.target);
  const std::size_t mark = std::min(target.find('?'), target.size());
  const std::string path = percent_decode(target.substr(0, mark), "path");
  const auto resource =
      path.starts_with('/') ? find_resource(std::string_view(path).substr(1)) : std::nullopt;
  if (!resource) return error_reply(404, "nothing exists at this path", printable(path));

  const Collection& collection = *resource->collection;
  if (request.method == "GET" || request.method == "HEAD") {
    return read(collection, resource->id, target.substr(std::min(mark + 1, target.size())), now);
  }
  if (!collection.takes_reports) return method_reply("GET, HEAD");
  if (request.method == "POST") return take_report(request.body);
  return method_reply("GET, HEAD, POST");
} catch (const BadRequest& error) {
  return error_reply(400, error.what(), error.where());
} catch (const std::exception& error) {
  return error_reply(500, printable(plain_reason(error)));
}

WebReply WebService::read(const Collection& collection, std::string_view id, std::string_view query,
                          std::int64_t now) {
  const Instants instants{now, now - close_delay_};
  const ReaderPool::Loan reader = readers_.borrow();
  if (id.empty())
    return {.status = 200, .body = reader->page(collection, parse_page_query(query), instants)};
  auto element = reader->element(collection, id, instants);
  if (!element) return error_reply(404, "no such element", printable(id));
  return {.status = 200, .body = std::move(*element)};
}

WebReply WebService::take_report(const std::string& body) {
  const Report report = parse_report(body);
  Connection catalog = open_catalog(catalog_, Connection::Access::kWrite);
  const bool is_new = put_report(catalog, kAnomaly, report.id, report.attributes);
  WebReply reply{.status = is_new ? 201 : 200, .body = "{\"data\":"};
  JsonObject element(reply.body);
  element.add("type", kAnomaly);
  element.add("id", report.id);
  element.add_json("attributes", report.attributes);
  element.close();
  reply.body += '}';
  return reply;
}

}  // namespace corvane::host
