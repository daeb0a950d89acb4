// What becomes of the web service's answers before anybody reads them.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace corvane {

// From now on every CVClientCURL of the process gives `filter` of an answer's body instead of the
// body. Without a filter, as in the service, answers stay as they are. Called before there are
// other threads.
void set_answer_filter(std::function<std::string(std::string_view)> filter);

}  // namespace corvane
