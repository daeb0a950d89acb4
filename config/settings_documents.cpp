#include "config/settings_documents.h"

#include <jansson.h>

#include <cstdlib>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "config/settings.h"
#include "platform/c_handles.h"

namespace corvane {

namespace {

constexpr std::size_t kCommentWidth = 100;

std::string text_in(const std::string& around, const std::string& settings) {
  constexpr std::string_view kPlace = "@SETTINGS@\n";
  const std::size_t at = around.find(kPlace);
  if (at == std::string::npos) throw std::runtime_error("no line @SETTINGS@ in the text around");
  return around.substr(0, at) + settings + around.substr(at + kPlace.size());
}

// The bounds and unit of a number; the form of a text.
std::string allowed(const Setting& setting) {
  if (setting.type == SettingType::kFlag) return "0 or 1";
  if (setting.type != SettingType::kInteger) return setting.unit;
  return std::to_string(setting.least) + " to " + std::to_string(setting.most) + " " + setting.unit;
}

std::string with_note(const Setting& setting) {
  return std::string(setting.meaning) + (*setting.note == '\0' ? "" : " ") + setting.note;
}

bool begins_section(const Setting& setting) {
  return &setting == all_settings().data() || (&setting - 1)->section != setting.section;
}

std::string comment(const std::string& text) {
  std::istringstream words(text);
  std::string lines;
  std::string line = "#";
  for (std::string word; words >> word; line += " " + word) {
    if (line.size() + 1 + word.size() <= kCommentWidth) continue;
    lines += line + "\n";
    line = "#";
  }
  return lines + line + "\n";
}

// In mdoc each sentence begins a line.
std::string sentences(std::string text) {
  for (std::size_t at = text.find(". "); at != std::string::npos; at = text.find(". ", at + 1)) {
    text[at + 1] = '\n';
  }
  return text + "\n";
}

const char* name_of(SettingType type) {
  switch (type) {
    case SettingType::kFlag:
      return "flag";
    case SettingType::kInteger:
      return "integer";
    case SettingType::kPath:
      return "path";
    case SettingType::kUrl:
      return "url";
    case SettingType::kAddress:
      return "address";
    case SettingType::kAddresses:
      return "addresses";
    case SettingType::kCommand:
      return "command";
    case SettingType::kHours:
      return "hours";
  }
  return "";
}

}  // namespace

std::string sample_file(const std::string& around) {
  std::string text;
  for (const Setting& setting : all_settings()) {
    const SettingsSection& section = *setting.section;
    if (begins_section(setting)) {
      text += "\n\n";
      if (*section.about != '\0') text += comment(section.about);
      text += std::string("[") + section.name + "]\n";
    }
    text += "\n" + comment(setting.meaning);
    text += comment("Value: " + allowed(setting) + ". Read by " + setting.readers + ".");
    if (*setting.note != '\0') text += comment(setting.note);
    text += std::string(setting.key) + "=" + setting.default_value + "\n";
  }
  return text_in(around, text);
}

std::string manual_page(const std::string& around) {
  std::string text;
  for (const Setting& setting : all_settings()) {
    const SettingsSection& section = *setting.section;
    if (begins_section(setting)) {
      if (!text.empty()) text += ".El\n";
      text += std::string(".Ss ") + section.name + "\n";
      if (*section.about != '\0') text += sentences(section.about);
      text += ".Bl -tag -width Ds\n";
    }
    text += std::string(".It Li ") + setting.key + "\n" + sentences(with_note(setting));
    text += "Value: " + allowed(setting) + ".\nRead by " + setting.readers + ".\n";
    text += std::string("Default: ") +
            (*setting.default_value == '\0' ? "empty" : setting.default_value) + ".\n";
  }
  return text_in(around, text + ".El\n");
}

std::string settings_guide() {
  std::string text =
      "<!-- Printed from config/settings.h. Renewed by "
      "cmake --build build/dev --target renew_settings_guide -->\n"
      "# Settings\n\n"
      "The settings of `anomaly_config.conf`, an INI file with case-sensitive names of sections "
      "and\n"
      "keys. A key that is left out has its default. A file with a malformed line counts as "
      "missing;\n"
      "`cvanomalyalert` keeps its former settings instead, and after a start sends nothing until "
      "the\n"
      "file is fixed. A value out of bounds counts as the default, with a line in the log of the\n"
      "program that reads it, unless stated otherwise below.\n";
  for (const Setting& setting : all_settings()) {
    const SettingsSection& section = *setting.section;
    if (begins_section(setting)) {
      text += std::string("\n## ") + section.name + "\n\n";
      if (*section.about != '\0') text += std::string(section.about) + "\n\n";
      text += "| key | default | value | read by | meaning |\n|---|---|---|---|---|\n";
    }
    text += std::string("| ") + setting.key + " | " + setting.default_value +
            (*setting.default_value == '\0' ? "| " : " | ") + allowed(setting) + " | " +
            setting.readers + " | " + with_note(setting) + " |\n";
  }
  return text;
}

std::string settings_json() {
  const JsonPtr array(json_array());
  for (const Setting& setting : all_settings()) {
    json_array_append_new(
        array.get(),
        json_pack("{ss ss ss ss si si ss ss ss ss}", "section", setting.section->name, "key",
                  setting.key, "type", name_of(setting.type), "default", setting.default_value,
                  "least", setting.least, "most", setting.most, "unit", setting.unit, "readers",
                  setting.readers, "meaning", setting.meaning, "note", setting.note));
  }
  const std::unique_ptr<char, decltype(&std::free)> text(json_dumps(array.get(), JSON_INDENT(1)),
                                                         &std::free);
  if (text == nullptr) throw std::bad_alloc();
  return std::string(text.get()) + "\n";
}

}  // namespace corvane
