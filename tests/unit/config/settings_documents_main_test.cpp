// The whole program: which document it prints.
#include <gtest/gtest.h>

#include "config/settings_documents.h"
#include "tests/support/program_run.h"

namespace corvane {
namespace {

constexpr const char* kRefused =
    "settings_documents: usage: settings_documents sample FILE | manual FILE | guide | json\n"
    "\nstatus 1";

std::string run(const std::string& arguments) {
  return test::program_run(CV_SETTINGS_DOCUMENTS " " + arguments);
}

TEST(SettingsDocumentsProgram, PrintsTheDocumentThatIsNamed) {
  const test::ScratchDir dir;
  test::write_file(dir("around"), "a\n@SETTINGS@\nb\n");
  EXPECT_EQ(run("guide"), settings_guide() + "status 0");
  EXPECT_EQ(run("json"), settings_json() + "status 0");
  EXPECT_EQ(run("sample " + dir("around")), sample_file("a\n@SETTINGS@\nb\n") + "status 0");
  EXPECT_EQ(run("manual " + dir("around")), manual_page("a\n@SETTINGS@\nb\n") + "status 0");
}

TEST(SettingsDocumentsProgram, RefusesEverythingElse) {
  for (const char* arguments : {"", "nothing", "nothing file", "sample", "manual", "guide file",
                                "json file", "guide file more", "sample file more"}) {
    EXPECT_EQ(run(arguments), kRefused) << arguments;
  }
  const test::ScratchDir dir;
  EXPECT_EQ(run("sample " + dir("none")),
            "settings_documents: cannot read " + dir("none") + "\nstatus 1");
}

}  // namespace
}  // namespace corvane
