// The page with charts.
#pragma once

#include <string>
#include <string_view>

namespace corvane::ctl {

// The whole page around a JSON document. Nothing in the document can leave the element that it is
// put into, and no script but the page's own may run: they are named by their hashes.
std::string report_page(std::string_view json);

}  // namespace corvane::ctl
