#include "gather/jobs_json.h"

#include <stdexcept>

#include "tests/fakes/platform_fake_test.h"

namespace corvane {
namespace {

using fake::LogLine;
using JobsJson = PlatformFake;

// What loading `text` throws, "" for nothing.
std::string failure(const std::string& text, json_type root_type) {
  try {
    load_jobs_json(text, root_type);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

TEST_F(JobsJson, ReturnsARootOfTheWantedType) {
  const JsonPtr object = load_jobs_json(R"({"a": 1})", JSON_OBJECT);
  EXPECT_EQ(json_integer_value(json_object_get(object.get(), "a")), 1);
  EXPECT_EQ(json_array_size(load_jobs_json("[1, 2]\r\n", JSON_ARRAY).get()), 2U);
  EXPECT_TRUE(fake.log.empty());
}

TEST_F(JobsJson, LogsAndThrowsForWhatIsNoJson) {
  EXPECT_EQ(failure("{\"a\": %d 100%s", JSON_OBJECT), "Job details not available.");
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{
                {16, "cvanomalymgmt", "JSON parsing failed for jobs data {\"a\": %d 100%s"}}));
}

TEST_F(JobsJson, LogsAndThrowsForARootOfAnotherType) {
  EXPECT_EQ(failure("[]", JSON_OBJECT), "JSON parsing failed for jobs data.");
  EXPECT_EQ(failure("{}", JSON_ARRAY), "JSON parsing failed for jobs data.");
  EXPECT_EQ(fake.log,
            (std::vector<LogLine>{{16, "cvanomalymgmt", "JSON parsing failed for jobs data []"},
                                  {16, "cvanomalymgmt", "JSON parsing failed for jobs data {}"}}));
}

TEST_F(JobsJson, TakesTheWholeTextOrNothing) {
  for (const char* text :
       {"", " ", "{} x", "{}{}", "\xEF\xBB\xBF{}", "3", "null", "\"text\"", "{\"a\": \"\\u0000\"}",
        "{\"a\": \"\xFF\"}", "{\"a\": 9223372036854775808}", "{\"a\": 1e999}", "{\"a\": 1"}) {
    EXPECT_EQ(failure(text, JSON_OBJECT), "Job details not available.") << text;
  }
}

}  // namespace
}  // namespace corvane
