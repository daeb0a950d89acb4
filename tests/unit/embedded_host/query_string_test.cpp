#include "embedded_host/query_string.h"

#include <gtest/gtest.h>

namespace corvane::host {
namespace {

// "WHERE: REASON" of a query that cannot be read.
std::string complaint(std::string_view query) {
  try {
    parse_page_query(query);
    return "read";
  } catch (const BadRequest& error) {
    return error.where() + ": " + error.what();
  }
}

TEST(QueryString, ReadsAGathersQuery) {
  const PageQuery query = parse_page_query(
      "page%5Boffset%5D=200&page%5Blimit%5D=100&sort=-startTime&filter=status%20eq%20'a+b'");
  EXPECT_EQ(query.offset, 200);
  EXPECT_EQ(query.limit, 100);
  EXPECT_EQ(query.sort, "-startTime");
  EXPECT_EQ(query.filter, "status eq 'a+b'");
}

TEST(QueryString, EverythingMayBeAbsent) {
  const PageQuery query = parse_page_query("");
  EXPECT_EQ(query.offset, 0);
  EXPECT_FALSE(query.limit);
  EXPECT_EQ(query.sort, "");
  EXPECT_EQ(query.filter, "");
}

TEST(QueryString, TheFirstEqualsSignSplits) {
  EXPECT_EQ(parse_page_query("filter=a=b").filter, "a=b");
  EXPECT_EQ(parse_page_query("filter=").filter, "");
  EXPECT_EQ(parse_page_query("filter").filter, "");
  EXPECT_EQ(parse_page_query("&&sort=x&").sort, "x");
}

TEST(QueryString, PercentDecoding) {
  EXPECT_EQ(percent_decode("%41%4a%4A%39%4F%6f+", "path"), "AJJ9Oo+");
  EXPECT_EQ(percent_decode("%00", "path"), std::string(1, '\0'));
  for (const char* text : {"%", "%4", "a%4", "%g0", "%0g", "%%41"}) {
    EXPECT_THROW(percent_decode(text, "path"), BadRequest) << text;
  }
}

TEST(QueryString, SaysWhatItCannotRead) {
  EXPECT_EQ(complaint("page=1"), "query: unknown parameter 'page'");
  EXPECT_EQ(complaint("sort=a&sort=b"), "sort: given more than once");
  EXPECT_EQ(complaint("sort=%zz"), "sort: '%' without two hexadecimal digits: '%zz'");
  EXPECT_EQ(complaint("sort=%zz9"), "sort: '%' without two hexadecimal digits: '%zz'");
  EXPECT_EQ(complaint(std::string_view("sort=%41").substr(0, 7)),
            "sort: '%' without two hexadecimal digits: '%4'");
  EXPECT_EQ(complaint("page[limit]=1&page[offset]=0"), "read");
  EXPECT_EQ(complaint("page[limit]=2147483647&page[offset]=2147483647"), "read");
  EXPECT_EQ(complaint("page[limit]=0"), "page[limit]: not a number from 1 to 2147483647: '0'");
  EXPECT_EQ(complaint("page[limit]=ten"), "page[limit]: not a number from 1 to 2147483647: 'ten'");
  for (const char* offset :
       {"-1", "+1", "1.0", "", " 1", "1 ", "2147483648", "99999999999999999999"}) {
    EXPECT_EQ(complaint("page[offset]=" + std::string(offset)),
              "page[offset]: not a number from 0 to 2147483647: '" + std::string(offset) + "'");
  }
}

}  // namespace
}  // namespace corvane::host
