// The collections of the web service and the structure of their elements.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "embedded_host/filter.h"

namespace corvane::host {

// A collection as SQL over the catalog. In every expression ?1 is the present time, and ?2 the
// latest end time of jobs that are shown as done (see Instants).
struct Collection {
  std::string_view path;  // below the server's root, without a leading "/"
  std::string_view table;
  std::string_view visible;                     // the condition for an element to exist
  std::string_view type;                        // of an element
  std::string_view id;                          // of an element
  std::span<const FilterAttribute> attributes;  // written into each element
  std::span<const FilterAttribute> filterable;  // what filters and sort orders may use
  std::string_view json_attributes;  // a column that holds the attributes as JSON; else empty
  std::string_view default_order;
  std::string_view tie_break;  // completes the order of a request, so that pages do not overlap
  std::int64_t default_limit;
  std::int64_t max_limit;
  bool has_single_elements;  // PATH/ID answers
  bool takes_reports;        // POST
};

std::span<const Collection> collections();

}  // namespace corvane::host
