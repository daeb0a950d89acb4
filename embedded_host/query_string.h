// The query of a request: "page[offset]=0&page[limit]=100&sort=-startTime&filter=...",
// percent-encoded.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace corvane::host {

// A request that is invalid. what() is the reason, where() the place.
class BadRequest : public std::runtime_error {
 public:
  BadRequest(const std::string& reason, std::string where)
      : std::runtime_error(reason), where_(std::move(where)) {}
  const std::string& where() const { return where_; }

 private:
  std::string where_;
};

struct PageQuery {
  std::int64_t offset = 0;
  std::optional<std::int64_t> limit = {};  // absent: the collection's own
  std::string sort = {};    // an attribute, with "-" in front for descending; may be empty
  std::string filter = {};  // may be empty
};

// Undoes percent-encoding ("+" stays itself). Throws BadRequest, naming `where`.
std::string percent_decode(std::string_view text, const std::string& where);

// Reads the part of a request after "?". Throws BadRequest for a key that is unknown or given
// twice, and for an offset or limit that is not a number from 0, or 1, to 2147483647.
PageQuery parse_page_query(std::string_view query);

}  // namespace corvane::host
