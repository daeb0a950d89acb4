// The test program. A look starts its own program again to ask the master server: then this is the
// script that the test has named, and never the tests.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

int main(int argc, char* argv[]) {
  if (argc > 1 && std::string_view(argv[1]) == "-database_location") {
    if (const char* script = std::getenv("CV_STANDS_IN")) execv(script, argv);
    return 1;
  }
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
