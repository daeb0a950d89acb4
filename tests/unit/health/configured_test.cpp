#include "health/configured.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "health/machine.h"
#include "health/trouble.h"
#include "tests/support/in_child.h"
#include "tests/support/scratch_dir.h"

namespace corvane::health {
namespace {

class ConfiguredTest : public testing::Test {
 protected:
  Configured configured(const std::string& text) const {
    test::write_file(directory_("c.conf"), text);
    return read_configuration(directory_("c.conf"));
  }
  Configured purge(const std::string& value) const {
    return configured("[DATABASE_SETTINGS]\nPURGE_DATA_INTERVAL_IN_MONTHS=" + value + "\n");
  }
  test::ScratchDir directory_;
};

TEST(MalformedLine, IsNeitherBlankNorCommentNorSectionNorSetting) {
  EXPECT_EQ(malformed_line(""), 0);
  EXPECT_EQ(malformed_line("\n \t\r\n;x\n  # y\n[s]\n [t] \na=\n b = c=d\n=e\n"), 0);
  EXPECT_EQ(malformed_line("a=b\nc"), 2);
  EXPECT_EQ(malformed_line("[s\na=b\n"), 1);
  EXPECT_EQ(malformed_line("\n\n[s] b\n"), 3);
  EXPECT_EQ(malformed_line("x\ny\n"), 1);
}

TEST_F(ConfiguredTest, AFileThatIsMalformedSaysWhere) {
  EXPECT_EQ(configured("[ANOMALY_DETECTION_FUNCTIONALITY]\nx\n").trouble,
            directory_("c.conf") + " is malformed in line 2");
  EXPECT_EQ(configured("[S]\na=b\n").trouble, "");
  EXPECT_TRUE(configured("").has_file);
}

// Wherever the service stops reading, that line is named.
TEST_F(ConfiguredTest, TheServiceFindsTheSameLinesMalformed) {
  for (const char* line :
       {"x", "[s", "=b", " = b", "[s] x", "a=b", "a=", ";", "#x=y", "", "]", "[]"}) {
    const std::string text = std::string("[S]\na=b\n") + line + "\n";
    EXPECT_EQ(configured(text).trouble.empty(), malformed_line(text) == 0) << line;
  }
}

TEST_F(ConfiguredTest, WithoutAFile) {
  const Configured none = read_configuration(directory_("none.conf"));
  EXPECT_FALSE(none.has_file);
  EXPECT_EQ(none.trouble, "");
  EXPECT_EQ(none.purge_months, 12);
}

TEST_F(ConfiguredTest, ADirectoryCannotBeRead) {
  std::filesystem::create_directory(directory_("d.conf"));
  EXPECT_EQ(read_configuration(directory_("d.conf")).trouble,
            directory_("d.conf") + " cannot be read");
}

TEST_F(ConfiguredTest, MonthsAreAsTheServiceCountsThem) {
  EXPECT_EQ(purge("0").purge_months, 0);
  EXPECT_EQ(purge("-1").purge_months, -1);
  EXPECT_EQ(purge("twelve").purge_months, 0);
  EXPECT_EQ(purge("twelve").purge, "twelve");
  EXPECT_EQ(purge("").purge_months, 12);
  EXPECT_EQ(purge("13").purge_months, 12);
  EXPECT_EQ(purge("3 months").purge_months, 3);
}

TEST_F(ConfiguredTest, TheHeartbeatHasAnAddressAndAuthorities) {
  const Configured found = configured(
      "[HEALING_SETTINGS]\nHEARTBEAT_URL=https://h/x\n[ALERT_SETTINGS]\nCA_FILE=/ca.pem\n");
  EXPECT_EQ(found.heartbeat_url, "https://h/x");
  EXPECT_EQ(found.ca_file, "/ca.pem");
  EXPECT_EQ(configured("").heartbeat_url, "");
}

TEST_F(ConfiguredTest, TheTimeOfTheFileIsKnown) {
  configured("");
  const std::string path = directory_("c.conf");
  EXPECT_EQ(read_configuration(path).changed, changed_at(path));
  EXPECT_GT(read_configuration(path).changed, 0);
  EXPECT_EQ(read_configuration(directory_("none.conf")).changed, 0);
}

// Root could read it, so that nobody else notices.
TEST_F(ConfiguredTest, WhatTheAccountCannotReadCountsAsDefaults) {
  configured("[DATA_GATHER_SETTINGS]\nLIVE_DATA_GATHER_FREQUENCY_IN_MIN=20\n");
  const std::string path = directory_("c.conf");
  constexpr uid_t kStranger = 1 << 30;
  std::filesystem::permissions(directory_(), std::filesystem::perms(0755));
  chmod(path.c_str(), 0600);
  const Configured found = read_configuration(path, kStranger);
  EXPECT_EQ(found.trouble, path + " cannot be read by the service account");
  EXPECT_EQ(found.interval_minutes, 15);
  EXPECT_TRUE(found.has_file);
  chmod(path.c_str(), 0604);
  EXPECT_EQ(read_configuration(path, kStranger).trouble, "");
  EXPECT_EQ(read_configuration(path, kStranger).interval_minutes, 20);
  chmod(path.c_str(), 0600);
  EXPECT_EQ(read_configuration(path, getuid()).trouble, "");
  EXPECT_EQ(read_configuration(path).trouble, "");
  EXPECT_EQ(read_configuration(directory_("none.conf"), kStranger).trouble, "");
}

// What a caller without its rights makes of the file: of the account, of another user.
TEST_F(ConfiguredTest, WhatOnlyTheCallerCannotReadIsTrouble) {
  if (getuid() != 0) GTEST_SKIP() << "only root can become another user";
  configured("");
  const std::string path = directory_("c.conf");
  std::filesystem::permissions(directory_(), std::filesystem::perms(0755));
  constexpr uid_t kStranger = 1 << 30;
  constexpr int kReadable = 0;
  constexpr int kProblem = 1;
  constexpr int kThrown = 2;
  const auto said_to = [&](uid_t caller, std::optional<uid_t> account) {
    return test::in_child([&] {
      if (setuid(caller) != 0) return -1;
      try {
        return read_configuration(path, account).trouble.empty() ? kReadable : kProblem;
      } catch (const Trouble&) {
        return kThrown;
      }
    });
  };
  chmod(path.c_str(), 0600);
  EXPECT_EQ(said_to(kStranger, kStranger), kProblem);
  EXPECT_EQ(said_to(kStranger, kStranger + 1), kProblem);
  EXPECT_EQ(said_to(kStranger, 0), kThrown);
  EXPECT_EQ(said_to(kStranger, std::nullopt), kThrown);
  ASSERT_EQ(chown(path.c_str(), kStranger, 0), 0);
  EXPECT_EQ(said_to(kStranger, kStranger), kReadable);
  // By the mode the account may, but it cannot; root cannot either.
  const auto said_when_denied = [&](uid_t effective) {
    return test::in_child([&] {
      if (setresuid(kStranger + 1, effective, 0) != 0) return -1;
      try {
        return read_configuration(path, kStranger).trouble.empty() ? kReadable : kProblem;
      } catch (const Trouble&) {
        return kThrown;
      }
    });
  };
  EXPECT_EQ(said_when_denied(kStranger), kProblem);
  EXPECT_EQ(said_when_denied(0), kProblem);
  EXPECT_EQ(said_when_denied(kStranger + 2), kThrown);
}

}  // namespace
}  // namespace corvane::health
