#include "embedded_host/query_string.h"

#include <limits>
#include <set>

#include "embedded_host/json_writer.h"
#include "embedded_host/parse_number.h"

namespace corvane::host {

namespace {

std::optional<int> hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return std::nullopt;
}

std::int64_t page_number(const std::string& text, std::int64_t least, const std::string& where) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
  const auto number = parse_number<std::int64_t>(text);
  if (!number || *number < least || *number > kMost) {
    throw BadRequest("not a number from " + std::to_string(least) + " to " + std::to_string(kMost) +
                         ": '" + printable(text) + "'",
                     where);
  }
  return *number;
}

}  // namespace

std::string percent_decode(std::string_view text, const std::string& where) {
  std::string decoded;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '%') {
      decoded += text[at];
      continue;
    }
    const bool has_both = at + 2 < text.size();
    const auto high = has_both ? hex_digit(text[at + 1]) : std::nullopt;
    const auto low = has_both ? hex_digit(text[at + 2]) : std::nullopt;
    if (!high || !low) {
      throw BadRequest(
          "'%' without two hexadecimal digits: '" + printable(text.substr(at, 3)) + "'", where);
    }
    decoded += static_cast<char>(*high * 16 + *low);
    at += 2;
  }
  return decoded;
}

PageQuery parse_page_query(std::string_view query) {
  PageQuery result;
  std::set<std::string> seen;
  while (!query.empty()) {
    const std::string_view pair = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(query.size(), pair.size() + 1));
    if (pair.empty()) continue;
    const std::size_t equals = std::min(pair.find('='), pair.size());
    const std::string key = percent_decode(pair.substr(0, equals), "query");
    const std::string value =
        percent_decode(pair.substr(std::min(equals + 1, pair.size())), printable(key));
    if (!seen.insert(key).second) throw BadRequest("given more than once", printable(key));
    if (key == "page[offset]") {
      result.offset = page_number(value, 0, key);
    } else if (key == "page[limit]") {
      result.limit = page_number(value, 1, key);
    } else if (key == "sort") {
      result.sort = value;
    } else if (key == "filter") {
      result.filter = value;
    } else {
      throw BadRequest("unknown parameter '" + printable(key) + "'", "query");
    }
  }
  return result;
}

}  // namespace corvane::host
