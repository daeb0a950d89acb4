#include "operator_tool/terminal/terminal.h"

#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <functional>

#include "tests/support/in_child.h"

namespace corvane::ctl {
namespace {

TEST(DisplayWidth, CountsColumnsNotBytes) {
  EXPECT_EQ(display_width(""), 0U);
  EXPECT_EQ(display_width("abc"), 3U);
  EXPECT_EQ(display_width(std::string_view("a\0b", 3)), 3U);
  EXPECT_EQ(display_width("\xFF\xFE"), 2U);  // no characters
  EXPECT_EQ(display_width("a\xC2\x9B"
                          "b"),
            3U);  // one without a width
  EXPECT_EQ(display_width("Gr\xC3\xBC\xC3\x9F"), 4U);
  EXPECT_EQ(display_width("\xE6\x9D\xB1\xE4\xBA\xAC"), 4U);  // two wide characters
  EXPECT_EQ(display_width("e\xCC\x81"), 1U);                 // with a combining accent
}

TEST(Fitted, CutsBetweenCharacters) {
  EXPECT_EQ(fitted("abcdef", 6), "abcdef");
  EXPECT_EQ(fitted("abcdef", 4), "abc\xE2\x80\xA6");
  EXPECT_EQ(fitted("\xE6\x9D\xB1\xE4\xBA\xAC\xE9\x83\xBD", 4), "\xE6\x9D\xB1\xE2\x80\xA6");
  EXPECT_EQ(fitted("abcdef", 0), "abcdef");
  EXPECT_EQ(fitted("abcdef", 5), "abcd\xE2\x80\xA6");
  EXPECT_EQ(fitted("abcdef", 1), "\xE2\x80\xA6");
  EXPECT_EQ(fitted("\xE6\x9D\xB1\xE4\xBA\xAC\xE9\x83\xBD", 5),
            "\xE6\x9D\xB1\xE4\xBA\xAC\xE2\x80\xA6");
}

TEST(Safe, NothingThatSteersATerminalIsLeft) {
  const std::string hostile = "a\x1B]0;title\x07\x1B[31mb\r\n\tc\x9B\xC2\x9B\xE2\x80\xAE\x7F";
  const std::string text = safe(hostile);
  for (const char letter : text) {
    const auto byte = static_cast<unsigned char>(letter);
    EXPECT_TRUE(byte >= 0x20 && byte != 0x7F) << static_cast<int>(byte);
  }
  EXPECT_EQ(text.substr(0, 10), "a ]0;title");  // as long as the text may be
  EXPECT_EQ(text.find("\xC2\x9B"), std::string::npos);
  EXPECT_EQ(text.find("\xE2\x80\xAE"), std::string::npos);
}

TEST(Shown, AsciiKeepsTheColumns) {
  const Terminal ascii{80, false, false};
  EXPECT_EQ(shown(ascii, "a\xE2\x96\x88\xE2\x94\xA4\xE2\x80\xA6\xE6\x9D\xB1"), "a#|~??");
  EXPECT_EQ(shown(ascii, "\xE2\x96\x81\xE2\x96\x80\xE2\x96\x89"), "#??");
  EXPECT_EQ(shown(ascii, "\xE2\x94\x80\xE2\x94\x82\xE2\x80\xB9\xE2\x80\xBA"), "-|<>");
  EXPECT_EQ(shown(ascii, "e\xCC\x81\xC3\xBC\xFF."), "e?\xFF.");
  const std::string text = "a\xE2\x96\x88";
  EXPECT_EQ(shown({80, false, true}, text), text);
}

TEST(Wrapped, BreaksAtBlanks) {
  EXPECT_EQ(wrapped({20, false, true}, "one two three four", 8), "one two\n        three four\n");
  EXPECT_EQ(wrapped({0, false, true}, "one two three four", 8), "one two three four\n");
  EXPECT_EQ(wrapped({15, false, true}, "one two three", 8), "one two\n        three\n");
  EXPECT_EQ(wrapped({14, false, true}, "one two three", 8), "one\n        two\n        three\n");
  EXPECT_EQ(wrapped({10, false, true}, "longer than that", 8),
            "longer\n        than\n        that\n");
  EXPECT_EQ(wrapped({80, false, true}, "", 8), "\n");
  EXPECT_EQ(wrapped({80, false, true}, "a b ", 0), "a b\n");
  EXPECT_EQ(wrapped({3, false, true}, "\xE6\x9D\xB1 b", 0), "\xE6\x9D\xB1\nb\n");
}

TEST(Padded, FillsUpToAWidth) {
  EXPECT_EQ(padded("ab", 4, false), "ab  ");
  EXPECT_EQ(padded("ab", 4, true), "  ab");
  EXPECT_EQ(padded("ab", 3, true), " ab");
  EXPECT_EQ(padded("ab", 2, true), "ab");
  EXPECT_EQ(padded("abc", 2, false), "abc");
  EXPECT_EQ(padded("\xE6\x9D\xB1", 3, false), "\xE6\x9D\xB1 ");
}

TEST(Styled, OnlyWithColour) {
  const Terminal colour{0, true, true};
  EXPECT_EQ(styled(colour, Style::kBold, "a"), "\x1B[1ma\x1B[0m");
  EXPECT_EQ(styled(colour, Style::kFaint, "a"), "\x1B[2ma\x1B[0m");
  EXPECT_EQ(styled(colour, Style::kWarning, "a"), "\x1B[33ma\x1B[0m");
  EXPECT_EQ(styled(colour, Style::kBad, "a"), "\x1B[31ma\x1B[0m");
  EXPECT_EQ(styled(colour, Style::kPlain, "a"), "a");
  EXPECT_EQ(styled(colour, Style::kBad, ""), "");
  EXPECT_EQ(styled({}, Style::kBad, "a"), "a");
}

// What standard output is, in a process of its own.
class TerminalOfOutput : public testing::Test {
 protected:
  struct Setting {
    std::string columns = {};
    std::string no_color = {};
    std::string term = {};
    std::string locale = {};
    bool no_colour = false;
    unsigned short window = 70;
  };
  static int on_terminal(const Setting& setting,
                         const std::function<bool(const Terminal&)>& holds) {
    return test::in_child([&] {
      int ours = -1;
      int its = -1;
      const winsize size{24, setting.window, 0, 0};
      if (openpty(&ours, &its, nullptr, nullptr, &size) != 0) return 99;
      dup2(its, STDOUT_FILENO);
      return state(setting, holds);
    });
  }
  static int in_a_file(const Setting& setting, const std::function<bool(const Terminal&)>& holds) {
    return test::in_child([&] {
      std::freopen("/dev/null", "w", stdout);
      return state(setting, holds);
    });
  }

 private:
  static int state(const Setting& setting, const std::function<bool(const Terminal&)>& holds) {
    for (const auto& [name, value] : {std::pair("COLUMNS", &setting.columns),
                                      {"NO_COLOR", &setting.no_color},
                                      {"TERM", &setting.term}}) {
      value->empty() ? unsetenv(name) : setenv(name, value->c_str(), 1);
    }
    setlocale(LC_CTYPE, setting.locale.empty() ? "C.UTF-8" : setting.locale.c_str());
    return holds(terminal_of_output(setting.no_colour)) ? 7 : 8;
  }
};

TEST_F(TerminalOfOutput, HasTheWidthOfTheTerminalOrOfColumns) {
  const auto is = [](std::size_t width) {
    return [width](const Terminal& terminal) { return terminal.width == width; };
  };
  EXPECT_EQ(on_terminal({.term = "xterm"}, is(70)), 7);
  EXPECT_EQ(on_terminal({.columns = "50", .term = "xterm"}, is(50)), 7);
  EXPECT_EQ(on_terminal({.columns = "1", .term = "xterm"}, is(1)), 7);
  for (const char* none : {"0", "x", "-5"}) {
    EXPECT_EQ(on_terminal({.columns = none, .term = "xterm"}, is(70)), 7) << none;
  }
  EXPECT_EQ(in_a_file({}, is(0)), 7);
  EXPECT_EQ(in_a_file({.columns = "50"}, is(50)), 7);
}

TEST_F(TerminalOfOutput, HasColourOnlyWhereItIsWanted) {
  const auto colour = [](const Terminal& terminal) { return terminal.colour; };
  EXPECT_EQ(on_terminal({.term = "xterm"}, colour), 7);
  EXPECT_EQ(on_terminal({.term = "xterm", .no_colour = true}, colour), 8);
  EXPECT_EQ(on_terminal({.no_color = "1", .term = "xterm"}, colour), 8);
  EXPECT_EQ(on_terminal({.term = "dumb"}, colour), 8);
  EXPECT_EQ(on_terminal({}, colour), 8);
  EXPECT_EQ(in_a_file({.term = "xterm"}, colour), 8);
}

TEST_F(TerminalOfOutput, ShowsUtf8UnlessTheLocaleIsAnother) {
  const auto utf8 = [](const Terminal& terminal) { return terminal.utf8; };
  EXPECT_EQ(on_terminal({.term = "xterm"}, utf8), 7);
  EXPECT_EQ(on_terminal({.term = "xterm", .locale = "C"}, utf8), 8);
  EXPECT_EQ(in_a_file({.locale = "C"}, utf8), 7);
}

}  // namespace
}  // namespace corvane::ctl
