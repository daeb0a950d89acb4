#include "service/host_role.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/unit/service/service_world.h"

namespace {

using corvane::fake::log_lines;
using corvane::fake::LogLine;
using corvane::test::kChildSucceeded;
using corvane::test::read_file;
using corvane::test::write_file;
using std::filesystem::exists;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const LogLine kNoInstallDir{16, "cvanomalymgmt", "getCVInstallDir() failed"};
const LogLine kNoMaster{16, "getMasterServerName", "ERR - Call to getMasterServerName() failed.\n"};
const LogLine kEmptyName{2, "cvanomalymgmt", "qpconf anomaly Server name is empty"};

class HostRoleTest : public ServiceWorld {
 protected:
  void SetUp() override {
    ServiceWorld::SetUp();
    make_database_directory();
  }

  std::string master_server() {
    std::string name = "unchanged";
    getMasterServerName(name);
    return name;
  }

  std::string anomaly_server() {
    std::string name = "unchanged";
    getAnomalyServerName(name);
    return name;
  }

  std::string host_name() {
    std::string name = "unchanged";
    get_host_name(name);
    return name;
  }
};

// --- Where the files lie ---

TEST_F(HostRoleTest, DatabaseLocationWithTheUsualInstallDirectory) {
  fake.install_dir = "/usr/tessel/";
  EXPECT_EQ(getDBLocation(), "/usr/tessel/var/global/anomaly_detection");
  EXPECT_EQ(dbLogPath, "/usr/tessel/var/global/anomaly_detection");
  EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(HostRoleTest, DatabaseLocationIsKeptOnceItIsKnown) {
  getDBLocation();
  fake.install_dir.reset();
  EXPECT_EQ(getDBLocation(), database_directory());
  EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(HostRoleTest, UnknownInstallDirectoryIsAskedForAgainTheNextTime) {
  fake.install_dir.reset();
  EXPECT_EQ(getDBLocation(), "");
  EXPECT_EQ(dbLogPath, "");
  EXPECT_THAT(log_lines(), ElementsAre(kNoInstallDir));
  fake.install_dir = scratch_() + "/";
  EXPECT_EQ(getDBLocation(), database_directory());
}

TEST_F(HostRoleTest, PathsAreMadeInBuffersOf512Bytes) {
  const std::string longest = "/" + std::string(509, 'd') + "/";
  fake.install_dir = longest;
  EXPECT_EQ(getDBLocation(), longest);
  fake.install_dir = longest + "x";
  dbLogPath.clear();
  EXPECT_EQ(getDBLocation(), "");
}

TEST_F(HostRoleTest, AnEmptyInstallDirectoryIsNoFailure) {
  fake.install_dir = "";
  EXPECT_EQ(getDBLocation(), "var/global/anomaly_detection");
  EXPECT_EQ(getqpgetconfigPath(), "corvane/bin/admincmd/qpgetconfig");
  EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(HostRoleTest, ConfigFilePath) {
  std::string path;
  EXPECT_EQ(getConfigFilePath(path), 0);
  EXPECT_EQ(path, database_directory() + "/anomaly_config.conf");
}

TEST_F(HostRoleTest, ConfigFilePathOfAnUnknownDatabaseLocation) {
  fake.install_dir.reset();
  std::string path = "unchanged";
  EXPECT_EQ(getConfigFilePath(path), 1);
  EXPECT_EQ(path, "unchanged");
  EXPECT_THAT(log_lines(), ElementsAre(kNoInstallDir, LogLine{16, "getConfigFilePath",
                                                              "Failed to get DB location"}));
}

TEST_F(HostRoleTest, ConfigurationToolsPath) {
  fake.install_dir = "/usr/tessel/";
  EXPECT_EQ(getqpgetconfigPath(), "/usr/tessel/corvane/bin/admincmd/qpgetconfig");
  fake.install_dir.reset();
  EXPECT_EQ(getqpgetconfigPath(), "");
  EXPECT_THAT(log_lines(), ElementsAre(kNoInstallDir));
}

// --- Who this host is ---

TEST_F(HostRoleTest, HostNameHasABufferOf257Bytes) {
  EXPECT_EQ(host_name(), "master01.example.com");
  fake.host_name = std::string(256, 'h');
  EXPECT_EQ(host_name(), std::string(256, 'h'));
  fake.host_name = std::string(257, 'h');
  EXPECT_EQ(host_name(), "");
}

TEST_F(HostRoleTest, HostNameThatCannotBeFoundOutIsEmpty) {
  fake.host_name.reset();
  EXPECT_EQ(host_name(), "");
  EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(HostRoleTest, IsMasterServerGoesByTheHostName) {
  EXPECT_TRUE(IsMasterServer());
  fake.host_name = "media01.example.com";
  EXPECT_FALSE(IsMasterServer());
  fake.host_name = "MASTER01.example.com";
  EXPECT_FALSE(IsMasterServer());
}

TEST_F(HostRoleTest, MasterServerIsTheFirstOfTheList) {
  fake.servers = {"first.example.com", "second.example.com"};
  EXPECT_EQ(master_server(), "first.example.com");
  EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(HostRoleTest, MasterConfigurationThatCannotBeReadLeavesTheName) {
  fake.master_config_result = 1;
  EXPECT_EQ(master_server(), "unchanged");
  EXPECT_THAT(log_lines(), ElementsAre(kNoMaster));
}

TEST_F(HostRoleTest, MasterConfigurationWithoutAServerLeavesTheName) {
  fake.servers.reset();
  EXPECT_EQ(master_server(), "unchanged");
  fake.servers.emplace();
  EXPECT_EQ(master_server(), "unchanged");
  fake.servers = {""};
  EXPECT_EQ(master_server(), "unchanged");
  fake.master_record_missing = true;
  EXPECT_EQ(master_server(), "unchanged");
  EXPECT_THAT(log_lines(), ElementsAre(kNoMaster, kNoMaster, kNoMaster, kNoMaster));
}

// --- The anomaly server ---

TEST_F(HostRoleTest, AnomalyServerIsTheThirdWordOfItsLine) {
  make_tool("echo 'ANOMALY_PROXY_SERVER = proxy01.example.com'\n");
  EXPECT_EQ(anomaly_server(), "proxy01.example.com");
  EXPECT_THAT(log_lines(), IsEmpty());
  EXPECT_FALSE(exists(scratch_output()));
}

TEST_F(HostRoleTest, ToolIsAskedForTheMasterServer) {
  make_tool("echo \"$#:$*\" > " + scratch_("arguments") + "\n");
  EXPECT_EQ(anomaly_server(), "unchanged");
  EXPECT_EQ(read_file(scratch_("arguments")), "2:-M master01.example.com\n");
}

TEST_F(HostRoleTest, WithoutAMasterServerTheToolIsStillRun) {
  fake.servers.reset();
  make_tool("echo \"$#:$*\" > " + scratch_("arguments") +
            "\necho 'ANOMALY_PROXY_SERVER = proxy01'\n");
  EXPECT_EQ(anomaly_server(), "proxy01");
  EXPECT_EQ(read_file(scratch_("arguments")), "1:-M\n");
  EXPECT_THAT(log_lines(), ElementsAre(kNoMaster));
}

TEST_F(HostRoleTest, ToolsExitStatusAndStreamDoNotMatter) {
  make_tool("echo 'ANOMALY_PROXY_SERVER = proxy01' >&2; exit 3\n");
  EXPECT_EQ(anomaly_server(), "proxy01");
}

TEST_F(HostRoleTest, OtherLinesAreSkipped) {
  make_tool(
      "echo 'SERVER = master01'\necho\necho ' ANOMALY_PROXY_SERVER = indented'\n"
      "echo 'ANOMALY_PROXY = x'\nprintf 'ANOMALY_PROXY_SERVER\\t:\\tproxy01   more words'\n");
  EXPECT_EQ(anomaly_server(), "proxy01");
}

TEST_F(HostRoleTest, OnlyTheFirstMatchingLineIsRead) {
  make_tool("echo 'ANOMALY_PROXY_SERVER = first'\necho 'ANOMALY_PROXY_SERVER = second'\n");
  EXPECT_EQ(anomaly_server(), "first");
  make_tool("echo 'ANOMALY_PROXY_SERVER ='\necho 'ANOMALY_PROXY_SERVER = second'\n");
  EXPECT_EQ(anomaly_server(), "unchanged");
}

TEST_F(HostRoleTest, ALineThatOnlyBeginsWithTheKeyMatches) {
  make_tool("echo 'ANOMALY_PROXY_SERVER_PORT = 1556'\n");
  EXPECT_EQ(anomaly_server(), "1556");
}

TEST_F(HostRoleTest, ALineWithoutAThirdWordIsLogged) {
  make_tool("echo 'ANOMALY_PROXY_SERVER = '\n");
  EXPECT_EQ(anomaly_server(), "unchanged");
  EXPECT_THAT(log_lines(), ElementsAre(kEmptyName));
  EXPECT_FALSE(exists(scratch_output()));
}

TEST_F(HostRoleTest, AnAnswerWithoutTheLineIsNotLogged) {
  make_tool("echo 'SERVER = master01'\n");
  EXPECT_EQ(anomaly_server(), "unchanged");
  EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(HostRoleTest, AMissingToolGivesNoAnswer) {
  EXPECT_EQ(anomaly_server(), "unchanged");
  EXPECT_THAT(log_lines(), IsEmpty());
  EXPECT_FALSE(exists(scratch_output()));
}

TEST_F(HostRoleTest, WhatAnEarlierRunLeftIsNotRead) {
  write_file(scratch_output(), "ANOMALY_PROXY_SERVER = stale and longer than the new answer\n");
  make_tool("echo short\n");
  EXPECT_EQ(anomaly_server(), "unchanged");
  EXPECT_FALSE(exists(scratch_output()));
}

TEST_F(HostRoleTest, TheOutputFileIsThereAndEmptyWhenTheToolStarts) {
  make_tool("[ -e " + scratch_output() + " -a ! -s " + scratch_output() + " ] && touch " +
            scratch_("empty") + "\n");
  anomaly_server();
  EXPECT_TRUE(exists(scratch_("empty")));
}

TEST_F(HostRoleTest, TheOutputFileIsHeldOpenWhileTheToolRuns) {
  make_tool("ls -l /proc/$PPID/fd > " + scratch_("held") + "\n");
  anomaly_server();
  // For writing only; what is made for the tool itself can be read as well.
  EXPECT_THAT(read_file(scratch_("held")),
              ::testing::ContainsRegex("l-wx[^\n]*" + scratch_output() + "\n"));
}

TEST_F(HostRoleTest, AMissingDatabaseDirectoryIsLoggedAndTheToolIsNotRun) {
  std::filesystem::remove_all(database_directory());
  make_tool("touch " + scratch_("ran") + "\n");
  EXPECT_EQ(anomaly_server(), "unchanged");
  EXPECT_FALSE(exists(scratch_("ran")));
  EXPECT_THAT(log_lines(), ElementsAre(LogLine{2, "cvanomalymgmt",
                                               "\nDatabase directory: " + database_directory() +
                                                   " does not exit.\n"}));
}

TEST_F(HostRoleTest, AnUnknownInstallDirectoryIsADatabaseDirectoryThatDoesNotExist) {
  fake.install_dir.reset();
  EXPECT_EQ(anomaly_server(), "unchanged");
  EXPECT_THAT(log_lines(),
              ElementsAre(kNoInstallDir, kNoInstallDir,
                          LogLine{2, "cvanomalymgmt", "\nDatabase directory:  does not exit.\n"}));
}

TEST_F(HostRoleTest, ADatabaseDirectoryThatIsAFileRunsTheToolWithAnEmptyAnswer) {
  std::filesystem::remove_all(database_directory());
  write_file(database_directory(), "a file");
  make_tool("echo 'ANOMALY_PROXY_SERVER = proxy01'; touch " + scratch_("ran") + "\n");
  testing::internal::CaptureStdout();
  EXPECT_EQ(anomaly_server(), "unchanged");
  testing::internal::GetCapturedStdout();
  EXPECT_TRUE(exists(scratch_("ran")));
  EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(HostRoleTest, TheAnswerArrivesWithTheStandardDescriptorsClosed) {
  make_tool("echo noise >&2\necho 'ANOMALY_PROXY_SERVER = proxy01'\n");
  EXPECT_EQ(in_child([this] {
              for (int d = 0; d <= 2; ++d) close(d);
              EXPECT_EQ(anomaly_server(), "proxy01");
            }),
            kChildSucceeded);
}

// --- Whether another host runs the service ---

TEST_F(HostRoleTest, TheConfiguredServerItselfRunsTheService) {
  fake.host_name = "proxy01.example.com";
  make_tool("echo 'ANOMALY_PROXY_SERVER = proxy01.example.com'\n");
  EXPECT_FALSE(isAnomalyRunningOnDiffServer());
}

TEST_F(HostRoleTest, TheSameNameWithADomainOrInOtherLetterCaseIsAnotherHost) {
  make_tool("echo 'ANOMALY_PROXY_SERVER = proxy01'\n");
  fake.host_name = "proxy01";
  EXPECT_FALSE(isAnomalyRunningOnDiffServer());
  fake.host_name = "proxy01.example.com";
  EXPECT_TRUE(isAnomalyRunningOnDiffServer());
  fake.host_name = "Proxy01";
  EXPECT_TRUE(isAnomalyRunningOnDiffServer());
}

TEST_F(HostRoleTest, TheMasterServerDoesNotRunItBesideAConfiguredServer) {
  make_tool("echo 'ANOMALY_PROXY_SERVER = proxy01'\n");
  EXPECT_TRUE(IsMasterServer());
  EXPECT_TRUE(isAnomalyRunningOnDiffServer());
}

TEST_F(HostRoleTest, WithoutAConfiguredServerItBelongsOnTheMasterServer) {
  make_tool("echo 'SERVER = master01'\n");
  EXPECT_FALSE(isAnomalyRunningOnDiffServer());
  fake.host_name = "media01.example.com";
  EXPECT_TRUE(isAnomalyRunningOnDiffServer());
}

TEST_F(HostRoleTest, WithAnEmptyConfiguredServerItBelongsOnTheMasterServer) {
  make_tool("echo 'ANOMALY_PROXY_SERVER ='\n");
  EXPECT_FALSE(isAnomalyRunningOnDiffServer());
  EXPECT_THAT(log_lines(), ElementsAre(kEmptyName));
  fake.host_name = "media01.example.com";
  EXPECT_TRUE(isAnomalyRunningOnDiffServer());
}

TEST_F(HostRoleTest, WithAMissingDatabaseDirectoryOnlyTheMasterServerRunsIt) {
  std::filesystem::remove_all(database_directory());
  make_tool("echo 'ANOMALY_PROXY_SERVER = media01.example.com'\n");
  EXPECT_FALSE(isAnomalyRunningOnDiffServer());
  fake.host_name = "media01.example.com";
  EXPECT_TRUE(isAnomalyRunningOnDiffServer());
}

}  // namespace
