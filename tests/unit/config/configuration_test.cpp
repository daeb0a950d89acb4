#include "config/configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>
#include <set>
#include <string>

#include "config/setting_values.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/scratch_dir.h"

namespace {

using corvane::test::OrdinaryUserFiles;
using corvane::test::ScratchDir;
using corvane::test::write_file;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Pieces = std::set<std::string>;
using PiecesByKey = std::map<std::string, Pieces>;

constexpr char kGather[] = "DATA_GATHER_SETTINGS";
constexpr char kFrequency[] = "LIVE_DATA_GATHER_FREQUENCY_IN_MIN";

class ConfigurationTest : public ::testing::Test {
 protected:
  // The value of S/K in a file of this content; the default of the pair is "".
  std::string value_in(const std::string& content) {
    write_file(scratch_("test.conf"), content);
    return Configuration(scratch_("test.conf"), 1).get_config("S", "K");
  }

  // Whether a file counts as one that could not be imported: then a value that comes before the
  // bad part is not seen.
  bool rejects(const std::string& content) {
    write_file(scratch_("test.conf"), "[S]\nK=seen\n" + content);
    return Configuration(scratch_("test.conf"), 1).get_config("S", "K").empty();
  }

  std::string path() { return scratch_("test.conf"); }

  ScratchDir scratch_;
};

// --- Defaults ---

TEST_F(ConfigurationTest, WithoutAFileTheDefaultsHold) {
  Configuration config(scratch_("missing.conf"), 1);
  EXPECT_EQ(config.get_config("DATA_GATHER_SETTINGS", "LIVE_DATA_GATHER_FREQUENCY_IN_MIN"), "15");
}

TEST_F(ConfigurationTest, AKeyOfNoTableRowIsEmptyWithoutAFile) {
  Configuration config(scratch_("missing.conf"), 1);
  EXPECT_EQ(config.get_config("DATA_GATHER_SETTINGS", "NO_SUCH_KEY"), "");
  EXPECT_EQ(config.get_config("NO_SUCH_SECTION", kFrequency), "");
  EXPECT_EQ(config.get_config("", ""), "");
}

TEST_F(ConfigurationTest, EveryDefaultOfType1) {
  Configuration config("", 1);
  const std::map<std::pair<std::string, std::string>, std::string> expected{
      {{"ANOMALY_DETECTION_FUNCTIONALITY", "DISABLE_ANOMALY_DETECTION"}, "0"},
      {{"ANOMALY_DETECTION_FUNCTIONALITY", "DISABLE_DETECTION_SERVICE"}, "1"},
      {{"ANOMALY_DETECTION_FUNCTIONALITY", "DISABLE_ALERT_SERVICE"}, "1"},
      {{"ANOMALY_DETECTION_SENSITIVITY", "SENSITIVITY_PERCENTAGE"}, "0"},
      {{"DATABASE_SETTINGS", "PURGE_DATA_INTERVAL_IN_MONTHS"}, "12"},
      {{"DATA_GATHER_SETTINGS", "LIVE_DATA_GATHER_FREQUENCY_IN_MIN"}, "15"},
      {{"ANOMALY_MODEL_SETTINGS", "MIN_OBSERVATIONS_FOR_TRAINING"}, "30"},
      {{"ANOMALY_MODEL_SETTINGS", "DAYS_FOR_LAST_BACKUP_TO_IGNORE_ANOMALY"}, "365"},
      {{"ANOMALY_MODEL_SETTINGS", "MAX_OBSERVATIONS_FOR_TRAINING"}, "3000"},
  };
  for (const auto& [name, value] : expected) {
    EXPECT_EQ(config.get_config(name.first, name.second), value)
        << name.first << " " << name.second;
  }
  std::size_t known = 0;
  for (const corvane::Setting& setting : corvane::all_settings()) {
    const auto found = expected.find({setting.section->name, setting.key});
    EXPECT_EQ(corvane::value_of(config, setting), found == expected.end() ? "" : found->second)
        << setting.key;
    if (found != expected.end()) ++known;
  }
  EXPECT_EQ(known, expected.size());
}

TEST_F(ConfigurationTest, Type0HasNoDefaultsAtAll) {
  for (const int type : {0, 2, -1}) {
    Configuration config(scratch_("missing.conf"), type);
    for (const corvane::Setting& setting : corvane::all_settings()) {
      EXPECT_EQ(corvane::value_of(config, setting), "") << type << " " << setting.key;
    }
  }
}

TEST_F(ConfigurationTest, Type0StillReadsTheFile) {
  write_file(path(), "[DATA_GATHER_SETTINGS]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=20\n");
  EXPECT_EQ(Configuration(path(), 0).get_config(kGather, kFrequency), "20");
}

TEST_F(ConfigurationTest, SectionWithoutTheKeyGivesTheDefault) {
  write_file(path(), "[DATA_GATHER_SETTINGS]\nOTHER=20\n");
  EXPECT_EQ(Configuration(path(), 1).get_config(kGather, kFrequency), "15");
}

TEST_F(ConfigurationTest, FileWithoutTheSectionGivesTheDefault) {
  write_file(path(), "[OTHER]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=20\n");
  EXPECT_EQ(Configuration(path(), 1).get_config(kGather, kFrequency), "15");
}

TEST_F(ConfigurationTest, KeyWithoutAValueIsEmptyAndNotTheDefault) {
  write_file(path(), "[DATA_GATHER_SETTINGS]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=\n");
  EXPECT_EQ(Configuration(path(), 1).get_config(kGather, kFrequency), "");
}

TEST_F(ConfigurationTest, TheFilesValueWinsAsItStands) {
  write_file(path(), "[DATA_GATHER_SETTINGS]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=Every Hour\n");
  EXPECT_EQ(Configuration(path(), 1).get_config(kGather, kFrequency), "Every Hour");
}

TEST_F(ConfigurationTest, TheFileIsReadOnceAndANewConfigurationSeesAnEdit) {
  write_file(path(), "[S]\nK=old\n");
  Configuration before(path(), 1);
  write_file(path(), "[S]\nK=new\n");
  EXPECT_EQ(before.get_config("S", "K"), "old");
  EXPECT_EQ(Configuration(path(), 1).get_config("S", "K"), "new");
}

// --- Files that cannot be imported ---

TEST_F(ConfigurationTest, AFolderOrAnUnreadableFileGivesTheDefaults) {
  EXPECT_EQ(Configuration(scratch_(), 1).get_config(kGather, kFrequency), "15");
  if (!OrdinaryUserFiles::possible()) GTEST_SKIP() << "root cannot step down here";
  write_file(path(), "[DATA_GATHER_SETTINGS]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=20\n");
  chmod(path().c_str(), 0);
  const OrdinaryUserFiles ordinary_user;
  EXPECT_EQ(Configuration(path(), 1).get_config(kGather, kFrequency), "15");
}

TEST_F(ConfigurationTest, AMalformedFileGivesTheDefaultsThroughoutWithoutASound) {
  write_file(path(),
             "[DATA_GATHER_SETTINGS]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=20\nLIST=a,b\nno equals\n");
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  Configuration config(path(), 1);
  EXPECT_EQ(config.get_config(kGather, kFrequency), "15");
  Pieces values;
  config.get_config_multiple_values(kGather, "LIST", values);
  EXPECT_THAT(values, IsEmpty());
  PiecesByKey by_key;
  config.get_config_dynamic_keys_multiple_values(kGather, by_key);
  EXPECT_THAT(by_key, IsEmpty());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(ConfigurationTest, WhatMakesAFileMalformed) {
  EXPECT_TRUE(rejects("a line without an equals sign\n"));
  EXPECT_TRUE(rejects("[NO_END\n"));
  EXPECT_TRUE(rejects("[" + std::string(256, 'L') + "]\n"));
  EXPECT_TRUE(rejects(std::string(256, 'L') + "=1\n"));
  EXPECT_TRUE(rejects("L=" + std::string(4096, 'l') + "\n"));
}

TEST_F(ConfigurationTest, WhatMakesAFileMalformedFromTheStart) {
  for (const char* start :
       {"K=before the first section\n", "[]\nK=in a section without a name\n", "\xEF\xBB\xBF"}) {
    write_file(path(), std::string(start) +
                           "[DATA_GATHER_SETTINGS]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=20\n");
    EXPECT_EQ(Configuration(path(), 1).get_config(kGather, kFrequency), "15") << start;
  }
}

TEST_F(ConfigurationTest, WhatIsStillWellFormed) {
  EXPECT_FALSE(rejects(""));
  EXPECT_FALSE(rejects("\n\n   \n"));
  EXPECT_FALSE(rejects("[" + std::string(255, 'L') + "]\n"));
  EXPECT_FALSE(rejects(std::string(255, 'L') + "=1\n"));
  EXPECT_FALSE(rejects("L=" + std::string(4000, 'l') + "\n"));
  EXPECT_FALSE(rejects("[EMPTY]\n"));
}

TEST_F(ConfigurationTest, AnEmptyFileGivesTheDefaults) {
  write_file(path(), "");
  EXPECT_EQ(Configuration(path(), 1).get_config(kGather, kFrequency), "15");
}

// --- Names ---

TEST_F(ConfigurationTest, SectionNamesAreMatchedExactly) {
  write_file(path(), "[data_gather_settings]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=20\n");
  EXPECT_EQ(Configuration(path(), 1).get_config(kGather, kFrequency), "15");
}

TEST_F(ConfigurationTest, SectionNamesThatDifferInOneLettersCase) {
  write_file(path(), "[Sect]\nK=1\n[A\\Sub]\nK=2\n");  // the heap would find [Sect] as "sect"
  Configuration config(path(), 1);
  EXPECT_EQ(config.get_config("Sect", "K"), "1");
  EXPECT_EQ(config.get_config("sect", "K"), "");
  EXPECT_EQ(config.get_config("a\\Sub", "K"), "");
  EXPECT_EQ(config.get_config("A\\sub", "K"), "");
  EXPECT_EQ(config.get_config("A\\Sub", "K"), "2");
}

TEST_F(ConfigurationTest, KeyNamesAreMatchedExactly) {
  write_file(path(), "[DATA_GATHER_SETTINGS]\nlive_data_gather_frequency_in_min=20\n");
  Configuration config(path(), 1);
  EXPECT_EQ(config.get_config(kGather, kFrequency), "15");
  EXPECT_EQ(config.get_config(kGather, "live_data_gather_frequency_in_min"), "20");
}

TEST_F(ConfigurationTest, ListKeysAreMatchedExactly) {
  write_file(path(), "[S]\nlist=a\n");
  Configuration config(path(), 1);
  Pieces values;
  config.get_config_multiple_values("S", "LIST", values);
  EXPECT_THAT(values, IsEmpty());
}

TEST_F(ConfigurationTest, TwoSpellingsOfAKeyStayOneEntry) {
  write_file(path(), "[S]\nKey=first\nKEY=last\n");
  Configuration config(path(), 1);
  EXPECT_EQ(config.get_config("S", "Key"), "last");
  EXPECT_EQ(config.get_config("S", "KEY"), "");
}

// --- What the importer makes of the text ---

TEST_F(ConfigurationTest, WhiteSpaceAroundNamesAndValuesIsDropped) {
  EXPECT_EQ(value_in("  [S]  \n\t K \t=\t a value  \n"), "a value");
}

TEST_F(ConfigurationTest, BlanksInsideASectionHeaderArePartOfTheName) {
  write_file(path(), "[ S ]\nK=1\n");
  Configuration config(path(), 1);
  EXPECT_EQ(config.get_config(" S ", "K"), "1");
  EXPECT_EQ(config.get_config("S", "K"), "");
}

TEST_F(ConfigurationTest, CommentsStartAtTheBeginningOfALineOnly) {
  EXPECT_EQ(value_in("; one\n[S]\n# two\n  ; three\nK=1 ; part # of the value\n"),
            "1 ; part # of the value");
}

TEST_F(ConfigurationTest, DosLineEndsAndAMissingLastLineEndAreFine) {
  EXPECT_EQ(value_in("[S]\r\nK=1\r\n"), "1");
  EXPECT_EQ(value_in("[S]\nK=1"), "1");
}

TEST_F(ConfigurationTest, DoubleQuotesAreDroppedAndSingleQuotesStay) {
  EXPECT_EQ(value_in("[S]\nK=\" quoted \"\n"), " quoted ");
  EXPECT_EQ(value_in("[S]\nK=\"\n"), "");
  EXPECT_EQ(value_in("[S]\nK='single'\n"), "'single'");
}

TEST_F(ConfigurationTest, TheFirstEqualsSignSplits) { EXPECT_EQ(value_in("[S]\nK=a=b\n"), "a=b"); }

TEST_F(ConfigurationTest, OfEqualKeysTheLastCountsAndEqualSectionsMerge) {
  EXPECT_EQ(value_in("[S]\nK=1\nK=2\n"), "2");
  EXPECT_EQ(value_in("[S]\nK=1\n[T]\nL=1\n[S]\nM=1\n"), "1");
}

TEST_F(ConfigurationTest, ABackslashNestsSections) {
  write_file(path(), "[A\\B]\nK=1\n");
  Configuration config(path(), 1);
  EXPECT_EQ(config.get_config("A\\B", "K"), "1");
  EXPECT_EQ(config.get_config("A", "K"), "");
}

TEST_F(ConfigurationTest, ASectionNameWithAnEmptyPartNamesNoSection) {
  write_file(path(), "[A\\B]\nK=1\n");
  Configuration config(path(), 1);
  for (const char* section : {"", "\\", "A\\B\\", "\\A\\B", "A\\\\B"}) {
    EXPECT_EQ(config.get_config(section, "K"), "") << section;
  }
}

// --- Lists ---

TEST_F(ConfigurationTest, ListAlphaBetaAlphaYieldsTwoPieces) {
  write_file(path(), "[S]\nLIST=Alpha,BETA,alpha\n");
  Configuration config(path(), 1);
  Pieces values;
  config.get_config_multiple_values("S", "LIST", values);
  EXPECT_THAT(values, ElementsAre("alpha", "beta"));
}

TEST_F(ConfigurationTest, ListPiecesAreAddedToWhatTheSetHolds) {
  write_file(path(), "[S]\nLIST=b, c,,\nEMPTY=\n");
  Configuration config(path(), 1);
  Pieces values{"Kept"};
  config.get_config_multiple_values("S", "LIST", values);
  config.get_config_multiple_values("S", "EMPTY", values);
  EXPECT_THAT(values, ElementsAre("", " c", "Kept", "b"));
}

TEST_F(ConfigurationTest, AMissingListLeavesTheSetAndConsultsNoDefault) {
  write_file(path(), "[DATA_GATHER_SETTINGS]\nOTHER=1\n");
  Configuration config(path(), 1);
  Configuration without_file(scratch_("missing.conf"), 1);
  Pieces values{"kept"};
  config.get_config_multiple_values(kGather, kFrequency, values);
  config.get_config_multiple_values("NO_SUCH_SECTION", "K", values);
  without_file.get_config_multiple_values(kGather, kFrequency, values);
  EXPECT_THAT(values, ElementsAre("kept"));
}

TEST_F(ConfigurationTest, DynamicKeysYieldEveryKeyInLowerCase) {
  write_file(path(), "[S]\nFirst=A,b\nSECOND= c , D\nEmpty=\n[T]\nOther=1\n");
  Configuration config(path(), 1);
  PiecesByKey values{{"kept", {"x"}}, {"first", {"replaced"}}};
  config.get_config_dynamic_keys_multiple_values("S", values);
  EXPECT_EQ(values,
            (PiecesByKey{
                {"empty", {}}, {"first", {"a", "b"}}, {"kept", {"x"}}, {"second", {"c ", " d"}}}));
}

TEST_F(ConfigurationTest, DynamicKeysOfManyValues) {
  std::string content = "[S]\n";
  for (int i = 0; i < 300; ++i) {
    content += "KEY_" + std::to_string(i) + "=" + std::to_string(i) + "\n";
  }
  write_file(path(), content);
  Configuration config(path(), 1);
  PiecesByKey values;
  config.get_config_dynamic_keys_multiple_values("S", values);
  EXPECT_EQ(values.size(), 300u);
  EXPECT_EQ(values["key_299"], Pieces{"299"});
}

TEST_F(ConfigurationTest, DynamicKeysWithoutFileOrSectionChangeNothing) {
  write_file(path(), "[S]\nK=1\n");
  Configuration config(path(), 1);
  Configuration without_file(scratch_("missing.conf"), 1);
  PiecesByKey values{{"kept", {"x"}}};
  config.get_config_dynamic_keys_multiple_values(kGather, values);
  without_file.get_config_dynamic_keys_multiple_values(kGather, values);
  EXPECT_EQ(values, (PiecesByKey{{"kept", {"x"}}}));
}

// --- Text helpers ---

TEST(ConfigurationTextTest, ToLowerChangesAToZOnly) {
  EXPECT_EQ(Configuration::toLower("AZ az [@] 09_\xC3\x84"), "az az [@] 09_\xC3\x84");
  EXPECT_EQ(Configuration::toLower(""), "");
}

Pieces pieces_of(const std::string& text, char delimiter) {
  Pieces pieces;
  Configuration::split(pieces, text, delimiter);
  return pieces;
}

TEST(ConfigurationTextTest, SplitDoesNotTrim) {
  EXPECT_EQ(pieces_of("a, b", ','), (Pieces{"a", " b"}));
}

TEST(ConfigurationTextTest, SplitKeepsAnEmptyPieceInTheMiddle) {
  EXPECT_EQ(pieces_of("a,,b", ','), (Pieces{"", "a", "b"}));
  EXPECT_EQ(pieces_of(",a", ','), (Pieces{"", "a"}));
}

TEST(ConfigurationTextTest, SplitAddsNoEmptyPieceForATrailingDelimiter) {
  EXPECT_EQ(pieces_of("a,", ','), (Pieces{"a"}));
  EXPECT_EQ(pieces_of("", ','), Pieces{});
}

TEST(ConfigurationTextTest, SplitCollapsesDuplicatesAndAddsToTheSet) {
  Pieces pieces{"z"};
  Configuration::split(pieces, "b;a;b", ';');
  EXPECT_THAT(pieces, ElementsAre("a", "b", "z"));
}

}  // namespace
