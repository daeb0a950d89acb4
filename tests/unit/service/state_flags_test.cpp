#include "service/state_flags.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "tests/unit/service/service_world.h"

namespace {

using corvane::fake::log_lines;
using corvane::fake::LogLine;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Flags = std::array<int, 3>;

const LogLine kAssinging{
    8, "cvanomalymgmt",
    "Failed to read config value for Detection process state. Assinging default value."};
const LogLine kAssining{
    8, "cvanomalymgmt",
    "Failed to read config value for Detection process state. Assining default value."};

LogLine invalid(const std::string& key, int value) {
  return {
      8, "ValidateConfigStateFlags",
      "Invalid value received for configuration key " + key + ":[" + std::to_string(value) + "]"};
}

class StateFlagsTest : public ServiceWorld {
 protected:
  // The flags as the file's section with these lines gives them.
  Flags flags_of(const std::string& lines) {
    configure("[ANOMALY_DETECTION_FUNCTIONALITY]\n" + lines);
    return read();
  }

  Flags read() {
    Flags flags{-7, -7, -7};
    EXPECT_EQ(ReadConfigStateFlags(flags[0], flags[1], flags[2]), 0);
    return flags;
  }
};

TEST_F(StateFlagsTest, ReadsTheThreeKeysInOrder) {
  EXPECT_EQ(flags_of("DISABLE_ALERT_SERVICE=3\nDISABLE_DETECTION_SERVICE=2\n"
                     "DISABLE_ANOMALY_DETECTION=1\n"),
            (Flags{1, 2, 3}));
  EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(StateFlagsTest, ReadsTheFileAfreshEachTime) {
  EXPECT_EQ(flags_of("DISABLE_ALERT_SERVICE=0\n"), (Flags{0, 1, 0}));
  EXPECT_EQ(flags_of("DISABLE_ALERT_SERVICE=1\n"), (Flags{0, 1, 1}));
}

TEST_F(StateFlagsTest, WithoutAFileTheDefaultsAre011) {
  EXPECT_EQ(read(), (Flags{0, 1, 1}));
  EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(StateFlagsTest, EmptyValuesAreLoggedAndGetTheFallbacks) {
  EXPECT_EQ(flags_of("DISABLE_ANOMALY_DETECTION=\nDISABLE_DETECTION_SERVICE=\n"
                     "DISABLE_ALERT_SERVICE=\n"),
            (Flags{0, 1, 1}));
  EXPECT_THAT(log_lines(), ElementsAre(kAssinging, kAssining, kAssining));
}

TEST_F(StateFlagsTest, UnknownDatabaseDirectoryGivesTheDefaults) {
  fake.install_dir.reset();
  EXPECT_EQ(read(), (Flags{0, 1, 1}));
  EXPECT_THAT(
      log_lines(),
      ElementsAre(LogLine{16, "cvanomalymgmt", "getCVInstallDir() failed"},
                  LogLine{16, "getConfigFilePath", "Failed to get DB location"},
                  LogLine{8, "cvanomalymgmt", "Could not determine the path to config file"}));
}

TEST_F(StateFlagsTest, Value1abcReadsAs1AndAbcAs0) {
  EXPECT_EQ(flags_of("DISABLE_ANOMALY_DETECTION=1abc\nDISABLE_DETECTION_SERVICE=abc\n"
                     "DISABLE_ALERT_SERVICE=-1\n"),
            (Flags{1, 0, -1}));
  EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(StateFlagsTest, WiderNumbersKeepTheirLow32Bits) {
  EXPECT_EQ(flags_of("DISABLE_ANOMALY_DETECTION=4294967296\nDISABLE_DETECTION_SERVICE=4294967297\n"
                     "DISABLE_ALERT_SERVICE=99999999999999999999\n"),
            (Flags{0, 1, -1}));
}

TEST_F(StateFlagsTest, EveryCombinationOf0And1IsValid) {
  for (int bits = 0; bits < 8; ++bits) {
    EXPECT_EQ(ValidateConfigStateFlags(bits & 1, bits >> 1 & 1, bits >> 2 & 1), 1) << bits;
  }
  EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(StateFlagsTest, DisableAlertServiceSetTo2IsInvalidAndLogged) {
  const Flags flags = flags_of("DISABLE_ALERT_SERVICE=2\n");
  EXPECT_EQ(ValidateConfigStateFlags(flags[0], flags[1], flags[2]), 0);
  EXPECT_THAT(log_lines(), ElementsAre(invalid("DISABLE_ALERT_SERVICE", 2)));
}

TEST_F(StateFlagsTest, AllInvalidKeysAreReported) {
  EXPECT_EQ(ValidateConfigStateFlags(2, 3, 4), 0);
  EXPECT_THAT(log_lines(), ElementsAre(invalid("DISABLE_ANOMALY_DETECTION", 2),
                                       invalid("DISABLE_DETECTION_SERVICE", 3),
                                       invalid("DISABLE_ALERT_SERVICE", 4)));
}

TEST_F(StateFlagsTest, Minus1IsRejected) {
  EXPECT_EQ(ValidateConfigStateFlags(-1, 0, 0), 0);
  EXPECT_EQ(ValidateConfigStateFlags(0, -1, 0), 0);
  EXPECT_EQ(ValidateConfigStateFlags(1, 1, -1), 0);
  EXPECT_THAT(log_lines(), ElementsAre(invalid("DISABLE_ANOMALY_DETECTION", -1),
                                       invalid("DISABLE_DETECTION_SERVICE", -1),
                                       invalid("DISABLE_ALERT_SERVICE", -1)));
}

}  // namespace
