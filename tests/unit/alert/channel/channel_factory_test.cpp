#include "companions/alert/channel/channel_factory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "companions/alert/channel/command_channel.h"
#include "companions/alert/channel/journal_channel.h"
#include "companions/alert/channel/mail_channel.h"
#include "companions/alert/channel/web_channel.h"
#include "companions/alert/channel/webhook_channel.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/unit/alert/channel/some_message.h"

namespace corvane::alert {
namespace {

class ChannelFactory : public PlatformFake {
 protected:
  ChannelFactory() {
    settings.syslog = settings.syslog_severity = settings.webhook_severity = 1;
    settings.mail_severity = settings.command_severity = 1;
    settings.syslog_socket = "/none/socket";
    settings.webhook_url = "ftp://localhost/";
    settings.mail_to = "a@b";
    settings.smtp_url = "ftp://localhost/";
    settings.command = "/none/command";
    settings.command_seconds = 10;
  }
  std::unique_ptr<Channel> made(const char* name) const {
    return make_channel(name, settings, "master01", stop);
  }
  std::string refusal(const char* name) const {
    const SendResult result = made(name)->send(some_message());
    EXPECT_FALSE(result.is_taken);
    return result.reason;
  }
  template <typename Type>
  bool is(const char* name) const {
    const std::unique_ptr<Channel> channel = made(name);
    return dynamic_cast<const Type*>(channel.get()) != nullptr;
  }

  Settings settings;
  StopFlag stop;
};

TEST_F(ChannelFactory, MakesTheChannelOfTheName) {
  EXPECT_TRUE(is<WebChannel>(kWeb));
  EXPECT_TRUE(is<JournalChannel>(kSyslog));
  EXPECT_TRUE(is<WebhookChannel>(kWebhook));
  EXPECT_TRUE(is<MailChannel>(kMail));
  EXPECT_TRUE(is<CommandChannel>(kCommand));
}

TEST_F(ChannelFactory, HandsOnTheSettings) {
  EXPECT_EQ(refusal(kSyslog), "cannot connect to the journal: No such file or directory");
  EXPECT_EQ(refusal(kCommand), "/none/command: No such file or directory");
  settings.command = "/bin/sleep 100";
  settings.command_seconds = 0;
  EXPECT_EQ(refusal(kCommand), "the program took longer than 0 s and was killed");
  fake.answers.push_back({.result = 0, .status = 503, .body = ""});
  EXPECT_EQ(refusal(kWeb), "HTTP status 503");
  EXPECT_EQ(fake.requests.at(0).server, "master01");
}

TEST_F(ChannelFactory, AChannelThatIsNotConfiguredRefuses) {
  settings = {};
  for (const char* name : {kSyslog, kWebhook, kMail, kCommand, "other"}) {
    EXPECT_EQ(refusal(name),
              "the channel is not configured: see ALERT_SETTINGS in anomaly_config.conf")
        << name;
  }
  EXPECT_TRUE(is<WebChannel>(kWeb));
}

}  // namespace
}  // namespace corvane::alert
