#include "platform/master_config.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/scratch_dir.h"

using corvane::is_host_name;
using corvane::MasterSettings;
using corvane::read_master_settings;
using corvane::test::ScratchDir;
using corvane::test::write_file;

namespace {

using Names = std::vector<std::string>;

class MasterConfigFile : public ::testing::Test {
 protected:
  std::optional<MasterSettings> read(const std::string& content) {
    write_file(scratch("corvane.conf"), content);
    return read_master_settings(scratch("corvane.conf"));
  }

  ScratchDir scratch;
};

}  // namespace

TEST_F(MasterConfigFile, AllFieldsAreRead) {
  const auto settings = read(
      "[domain]\n"
      "servers=master01.example.com media01.example.com\n"
      "[host]\n"
      "name=master01.example.com\n"
      "service_account=corvane\n"
      "[web]\n"
      "connect_to=127.0.0.1\n");
  ASSERT_TRUE(settings);
  EXPECT_EQ(settings->servers, (Names{"master01.example.com", "media01.example.com"}));
  EXPECT_EQ(settings->host_name, "master01.example.com");
  EXPECT_EQ(settings->service_account, "corvane");
  EXPECT_EQ(settings->connect_to, "127.0.0.1");
  EXPECT_TRUE(settings->has_valid_servers());
}

TEST_F(MasterConfigFile, AbsentFieldsAreEmpty) {
  const auto settings = read("[domain]\nservers=a\n");
  ASSERT_TRUE(settings);
  EXPECT_EQ(settings->host_name, "");
  EXPECT_EQ(settings->service_account, "");
  EXPECT_EQ(settings->connect_to, "");
}

TEST_F(MasterConfigFile, AnyNumberOfBlanksSeparatesServers) {
  const auto settings = read("[domain]\r\n  servers =  a \t b   c  \r\n");
  ASSERT_TRUE(settings);
  EXPECT_EQ(settings->servers, (Names{"a", "b", "c"}));
}

TEST_F(MasterConfigFile, KeysAreMatchedExactly) {
  const auto settings = read("[domain]\nServers=a\n[host]\nSERVICE_ACCOUNT=c\nname_=d\n");
  ASSERT_TRUE(settings);
  EXPECT_EQ(settings->servers, Names{});
  EXPECT_EQ(settings->host_name, "");
  EXPECT_EQ(settings->service_account, "");
}

TEST_F(MasterConfigFile, WithoutServersItIsNotValid) {
  for (const char* content : {"", "[domain]\n", "[domain]\nservers=\n", "[domain]\nservers=   \n",
                              "[host]\nservers=a\n"}) {
    const auto settings = read(content);
    ASSERT_TRUE(settings) << content;
    EXPECT_FALSE(settings->has_valid_servers()) << content;
  }
}

TEST_F(MasterConfigFile, OneHostileServerNameMakesItInvalid) {
  for (const char* name : {"a;rm", "$(x)", "`x`", "a|b", "a&b", "a/b", "a'b", "\"a", "a\\b", "a_b",
                           "a*b", "a>b", "-x", "a\xc3\xa4", "[::1]", "a,b"}) {
    const auto settings = read(std::string("[domain]\nservers=good ") + name + "\n");
    ASSERT_TRUE(settings) << name;
    EXPECT_FALSE(settings->has_valid_servers()) << name;
  }
}

TEST_F(MasterConfigFile, CommandWithBlanksIsNoServerList) {
  const auto settings = read("[domain]\nservers=a;rm -rf x\n");
  ASSERT_TRUE(settings);
  EXPECT_FALSE(settings->has_valid_servers());
}

TEST_F(MasterConfigFile, MalformedFileIsNotReadAtAll) {
  for (const char* content :
       {"servers=a\n", "[domain]\nservers=a\nno equals sign\n", "[domain]\nservers=a\n[broken\n",
        "\xef\xbb\xbf[domain]\nservers=a\n"}) {
    EXPECT_FALSE(read(content)) << content;
  }
  EXPECT_FALSE(read("[domain]\nservers=" + std::string(5000, 'a') + "\n"));
}

TEST_F(MasterConfigFile, MissingFileAndDirectoryAreNotRead) {
  EXPECT_FALSE(read_master_settings(scratch("missing")));
  EXPECT_FALSE(read_master_settings(scratch()));
  EXPECT_FALSE(read_master_settings(""));
}

TEST(HostName, LettersDigitsDotsHyphensAndColons) {
  EXPECT_TRUE(is_host_name("Master-01.example.com"));
  EXPECT_TRUE(is_host_name("2001:db8::1"));
  EXPECT_TRUE(is_host_name("10.0.0.1"));
  EXPECT_FALSE(is_host_name(""));
  EXPECT_FALSE(is_host_name("a b"));
  EXPECT_FALSE(is_host_name("a\nb"));
  EXPECT_FALSE(is_host_name(std::string_view("a\0b", 3)));
  EXPECT_FALSE(is_host_name("-M"));
  for (const char c : std::string("azAZ09.:")) EXPECT_TRUE(is_host_name({&c, 1})) << c;
  for (const char c : std::string("`{@[/;-")) EXPECT_FALSE(is_host_name({&c, 1})) << c;
}
