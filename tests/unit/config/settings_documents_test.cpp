#include "config/settings_documents.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jansson.h>

#include <stdexcept>

#include "config/setting_values.h"
#include "platform/c_handles.h"
#include "tests/support/scratch_dir.h"

namespace corvane {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

std::size_t count(const std::string& text, const std::string& part) {
  std::size_t times = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++times;
  }
  return times;
}

TEST(SettingsDocuments, StandWhereTheirPlaceIs) {
  EXPECT_THAT(sample_file("before\n@SETTINGS@\nafter\n"),
              StartsWith("before\n\n\n# cvanomalymgmt"));
  EXPECT_THAT(manual_page("before\n@SETTINGS@\nafter\n"), StartsWith("before\n.Ss ANOMALY_"));
  EXPECT_THAT(manual_page("@SETTINGS@\nafter\n"), HasSubstr("\n.El\nafter\n"));
  EXPECT_THROW(sample_file("before\n"), std::runtime_error);
  EXPECT_THROW(manual_page(""), std::runtime_error);
}

TEST(SettingsDocuments, SampleIsAFileWithEveryDefault) {
  const test::ScratchDir directory;
  const std::string text = sample_file("# A sample.\n@SETTINGS@\n");
  test::write_file(directory("c"), text);
  Configuration file(directory("c"), 0);  // of itself this one knows no default
  for (const Setting& setting : all_settings()) {
    const std::string line = std::string("\n") + setting.key + "=";
    EXPECT_EQ(count(text, line + setting.default_value + "\n"), 1U) << setting.key;
    EXPECT_EQ(count(text, line), 1U) << setting.key;
    EXPECT_EQ(value_of(file, setting), setting.default_value) << setting.key;
  }
  EXPECT_THAT(text, HasSubstr("\n# How sensitive the detection is: 100 halves the deviation that "
                              "counts as an anomaly, -100 doubles\n# it.\n"
                              "# Value: -100 to 100 percent. Read by cvanomalydetect when the file "
                              "changes, cvanomalyctl when it is\n# called.\n"
                              "SENSITIVITY_PERCENTAGE=0\n"));
}

TEST(SettingsDocuments, ManualPageHasEverySetting) {
  const std::string text = manual_page("@SETTINGS@\n");
  for (const Setting& setting : all_settings()) {
    EXPECT_EQ(count(text, std::string(".It Li ") + setting.key + "\n"), 1U) << setting.key;
  }
  EXPECT_EQ(count(text, "\nDefault: "), all_settings().size());
  EXPECT_EQ(count(text, "\n.El\n"), 7U);
  EXPECT_EQ(count(text, ".Ss "), 7U);
  EXPECT_EQ(count(text, ". "), 0U);  // sentences begin lines
  EXPECT_THAT(text, HasSubstr(".It Li MAIL_TO\nThe recipients of mail; empty: nobody.\n"
                              "Value: addresses, separated by commas.\n"
                              "Read by cvanomalyalert when the file changes.\nDefault: empty.\n"));
}

TEST(SettingsDocuments, GuideHasARowForEverySetting) {
  const std::string text = settings_guide();
  for (const Setting& setting : all_settings()) {
    EXPECT_EQ(count(text, std::string("\n| ") + setting.key + " | "), 1U) << setting.key;
    const SettingsSection& section = *setting.section;
    const std::string about = section.about;
    EXPECT_THAT(text, HasSubstr(std::string("\n## ") + section.name + "\n\n" + about +
                                (about.empty() ? "" : "\n\n") + "| key | default | "));
  }
  EXPECT_EQ(count(text, "\n## "), 7U);
  EXPECT_EQ(count(text, "|"), 7 * (6 + 6) + 6 * all_settings().size());
  EXPECT_THAT(text, HasSubstr("\n| SYSLOG | 0 | 0 or 1 | cvanomalyalert when the file changes | "));
  EXPECT_THAT(text, HasSubstr("\n| MAIL_FROM | | one address | "));
}

TEST(SettingsDocuments, JsonTellsTheWholeTable) {
  const JsonPtr array(json_loads(settings_json().c_str(), 0, nullptr));
  ASSERT_EQ(json_array_size(array.get()), all_settings().size());
  for (std::size_t i = 0; i < all_settings().size(); ++i) {
    const Setting& setting = all_settings()[i];
    const json_t* object = json_array_get(array.get(), i);
    const auto text = [&](const char* name) {
      return std::string(json_string_value(json_object_get(object, name)));
    };
    EXPECT_EQ(json_object_size(object), 10U);
    EXPECT_EQ(text("section"), setting.section->name);
    EXPECT_EQ(text("key"), setting.key);
    EXPECT_EQ(text("default"), setting.default_value);
    EXPECT_EQ(text("unit"), setting.unit);
    EXPECT_EQ(text("readers"), setting.readers);
    EXPECT_EQ(text("meaning"), setting.meaning);
    EXPECT_EQ(text("note"), setting.note);
    EXPECT_EQ(json_integer_value(json_object_get(object, "least")), setting.least);
    EXPECT_EQ(json_integer_value(json_object_get(object, "most")), setting.most);
  }
  EXPECT_THAT(settings_json(), HasSubstr("\"type\": \"hours\""));
}

// Texts of the table stand in these formats without being escaped.
TEST(SettingsDocuments, NeedNothingEscaped) {
  for (const Setting& setting : all_settings()) {
    for (const char* text : {setting.default_value, setting.unit, setting.readers, setting.meaning,
                             setting.note, setting.section->about}) {
      EXPECT_EQ(std::string(text).find_first_of("|\\\n<`"), std::string::npos) << text;
      EXPECT_FALSE(*text == '.' || *text == '\'') << text;
    }
  }
}

}  // namespace
}  // namespace corvane
