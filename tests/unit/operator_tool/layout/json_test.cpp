#include "operator_tool/layout/json.h"

#include <gtest/gtest.h>

namespace corvane::ctl {
namespace {

TEST(Document, BeginsWithItsSchemaAndCommand) {
  EXPECT_EQ(json_text(document("streams").get()), R"({"schema":1,"command":"streams"})");
}

}  // namespace
}  // namespace corvane::ctl
