#include "platform/host_product.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <functional>
#include <string>

#include "platform/daemon_mark.h"
#include "tests/support/in_child.h"
#include "tests/support/scratch_dir.h"
#include "tests/unit/platform/sandbox.h"

using corvane::test::enter_sandbox;
using corvane::test::in_child;
using corvane::test::read_file;
using corvane::test::sandbox_is_possible;
using corvane::test::ScratchDir;
using corvane::test::write_file;

namespace {

constexpr const char* kConfig = "/usr/tessel/corvane/corvane.conf";

// Each test runs in a child that has a /usr/tessel of its own.
class InstalledProduct : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!sandbox_is_possible()) GTEST_SKIP() << "no mount namespace can be made here";
  }

  static int sandboxed(const std::function<void()>& body) {
    return in_child([&body] {
      if (!enter_sandbox()) return 90;
      body();
      return 0;
    });
  }
};

std::string host_name() {
  std::array<char, 257> buffer{};
  EXPECT_EQ(qp_gethostname(buffer.data(), buffer.size()), 0);
  return buffer.data();
}

std::string system_host_name() {
  std::array<char, HOST_NAME_MAX + 1> buffer{};
  gethostname(buffer.data(), buffer.size());
  return buffer.data();
}

}  // namespace

TEST(HostProduct, InstallDirectoryEndsWithASlash) {
  std::array<char, 512> buffer{};
  EXPECT_EQ(getCVInstallDir(buffer.data(), buffer.size()), 0);
  EXPECT_STREQ(buffer.data(), "/usr/tessel/");
}

TEST(HostProduct, InstallDirectoryThatDoesNotFitIsAFailure) {
  std::array<char, 13> buffer{};
  EXPECT_EQ(getCVInstallDir(buffer.data(), 13), 0);
  EXPECT_STREQ(buffer.data(), "/usr/tessel/");
  EXPECT_EQ(getCVInstallDir(buffer.data(), 12), -1);
  EXPECT_EQ(getCVInstallDir(nullptr, 0), -1);
}

TEST(HostProduct, DaemonMarkIsPassedOn) {
  pluma_set_corvane_daemon(1);
  EXPECT_TRUE(corvane::is_marked_daemon());
  pluma_set_corvane_daemon(0);
  EXPECT_FALSE(corvane::is_marked_daemon());
}

TEST_F(InstalledProduct, MasterConfigurationIsReadAfreshOnEveryCall) {
  EXPECT_EQ(sandboxed([] {
              EXPECT_NE(CV_read_master_config(), 0);
              EXPECT_EQ(get_master_config_ptr(), nullptr);
              write_file(kConfig, "[domain]\nservers=a b\n[host]\nname=h\n");
              ASSERT_EQ(CV_read_master_config(), 0);
              const MasterConfig* config = get_master_config_ptr();
              ASSERT_NE(config, nullptr);
              EXPECT_EQ(config->format_version, 1);
              EXPECT_STREQ(config->host_name, "h");
              EXPECT_STREQ(config->servers[0], "a");
              EXPECT_STREQ(config->servers[1], "b");
              EXPECT_EQ(config->servers[2], nullptr);
              write_file(kConfig, "[domain]\nservers=c\n");
              ASSERT_EQ(CV_read_master_config(), 0);
              EXPECT_STREQ(get_master_config_ptr()->servers[0], "c");
              EXPECT_STREQ(get_master_config_ptr()->host_name, "");
              write_file(kConfig, "[domain]\nservers=c;reboot\n");
              EXPECT_NE(CV_read_master_config(), 0);
              EXPECT_EQ(get_master_config_ptr(), nullptr);
            }),
            0);
}

TEST_F(InstalledProduct, HostNameIsTheConfiguredOneElseTheSystems) {
  EXPECT_EQ(sandboxed([] {
              EXPECT_EQ(host_name(), system_host_name());
              write_file(kConfig, "[domain]\nservers=a\n");
              EXPECT_EQ(host_name(), system_host_name());
              write_file(kConfig, "[host]\nname=media01.example.com\n");
              EXPECT_EQ(host_name(), "media01.example.com");
              std::array<char, 8> small{'x'};
              EXPECT_EQ(qp_gethostname(small.data(), small.size()), -1);
              EXPECT_STREQ(small.data(), "");
            }),
            0);
}

TEST_F(InstalledProduct, MasterIsTheFirstServerExactly) {
  EXPECT_EQ(sandboxed([] {
              EXPECT_EQ(pluma_is_master_server("a"), 0);
              write_file(kConfig, "[domain]\nservers=a.example.com b\n");
              EXPECT_EQ(pluma_is_master_server("a.example.com"), 1);
              EXPECT_EQ(pluma_is_master_server("A.example.com"), 0);
              EXPECT_EQ(pluma_is_master_server("a"), 0);
              EXPECT_EQ(pluma_is_master_server("b"), 0);
              EXPECT_EQ(pluma_is_master_server(""), 0);
              write_file(kConfig, "[domain]\nservers=a b;c\n");
              EXPECT_EQ(pluma_is_master_server("a"), 0);
            }),
            0);
}

TEST_F(InstalledProduct, ProcessMovesToTheToolsWhenTheyAreThere) {
  EXPECT_EQ(sandboxed([] {
              const auto before = std::filesystem::current_path();
              EXPECT_EQ(enable_process_for_service_account(), 0);
              EXPECT_EQ(std::filesystem::current_path(), before);
              std::filesystem::create_directories("/usr/tessel/corvane/bin");
              EXPECT_EQ(enable_process_for_service_account(), 0);
              EXPECT_EQ(std::filesystem::current_path(), "/usr/tessel/corvane/bin");
            }),
            0);
}

TEST_F(InstalledProduct, AccountThatCannotBeTakenEndsTheProcess) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can take another account";
  const ScratchDir scratch;
  EXPECT_EQ(sandboxed([&] {
              write_file(kConfig, "[host]\nservice_account=cv-no-such-account\n");
              dup2(open(scratch("errors").c_str(), O_WRONLY | O_CREAT, 0600), 2);
              enable_process_for_service_account();
              ADD_FAILURE() << "it went on";
            }),
            1);
  EXPECT_EQ(read_file(scratch("errors")),
            "platform_test: cannot run as service account 'cv-no-such-account': no such account\n");
}
