// What the commands say, as text and as JSON.
#pragma once

#include <jansson.h>

#include "platform/c_handles.h"
#include "tests/unit/operator_tool/operator_world.h"

namespace corvane::ctl {

class Commands : public OperatorWorld {
 protected:
  JsonPtr json(const std::vector<std::string>& arguments) {
    std::vector<std::string> all = arguments;
    all.emplace_back("--json");
    const Said said = say(all);
    EXPECT_EQ(said.status, 0) << said.error;
    JsonPtr root(json_loads(said.out.c_str(), JSON_REJECT_DUPLICATES, nullptr));
    EXPECT_NE(root, nullptr) << said.out;
    EXPECT_EQ(json_integer_value(json_object_get(root.get(), "schema")), 1);
    EXPECT_STREQ(json_string_value(json_object_get(root.get(), "command")), arguments[0].c_str());
    return root;
  }
  static json_int_t number(const json_t* root, std::initializer_list<const char*> path) {
    for (const char* name : path) root = json_object_get(root, name);
    EXPECT_TRUE(json_is_integer(root));
    return json_integer_value(root);
  }
  bool says(const Said& said, const std::string& words) {
    return said.out.find(words) != std::string::npos;
  }
  void three_anomalies() {
    anomaly({.client = "a", .time = kNow - 40 * kDay}, 1,
            {.client = "a", .time = kNow - 40 * kDay});
    anomaly({.client = "b", .time = kNow - kDay}, 3, {.client = "b", .time = kNow - kDay});
    anomaly({.client = "c", .time = kNow}, 2, {.client = "c", .time = kNow});
    feedback({.client = "b", .time = kNow - kDay}, 1);
  }
};

}  // namespace corvane::ctl
