#include "platform/c_handles.h"

#include <gtest/gtest.h>

#include "tests/support/descriptors.h"
#include "tests/support/heap.h"

namespace corvane {
namespace {

TEST(CHandles, AreReleasedByTheirOwners) {
  const int descriptor = test::lowest_free_descriptor();
  EXPECT_EQ(test::bytes_left_by([] { const CurlPtr curl(curl_easy_init()); }), 0);
  EXPECT_EQ(test::bytes_left_by([] { const DirPtr directory(opendir("/")); }), 0);
  EXPECT_EQ(test::bytes_left_by([] { const FilePtr file(std::fopen("/dev/null", "re")); }), 0);
  EXPECT_EQ(test::bytes_left_by([] { const JsonPtr json(json_object()); }), 0);
  EXPECT_EQ(test::lowest_free_descriptor(), descriptor);
}

}  // namespace
}  // namespace corvane
