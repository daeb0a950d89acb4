#include "companions/alert/channel/mail_channel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <stdexcept>

#include "tests/fakes/platform_fake_test.h"

namespace corvane::alert {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

TEST(MailAddresses, AreTakenFromAList) {
  EXPECT_THAT(mail_addresses("a@b"), ElementsAre("a@b"));
  EXPECT_THAT(mail_addresses(" a@b ,\tc+d@e.example.com,,"),
              ElementsAre("a@b", "c+d@e.example.com"));
}

TEST(MailAddresses, NothingElseGetsThrough) {
  for (const char* list : {"", " , ", "a", "@b", "a@", "a@b@c", "a@b c", "<a@b>", "a@b\r\nBcc: x@y",
                           "a@b>\nRCPT TO:<x@y>", "\"a\"@b", "grö@b", "a@b;c@d"}) {
    EXPECT_THROW(mail_addresses(list), std::runtime_error) << list;
  }
}

TEST(MailText, HasOnlyTheHeadersThatItShould) {
  Message message;
  message.alert = "1234abcd-5";
  message.severity = Severity::kCritical;
  message.subject = "größe " + std::string(300, 'x') + "\r\nBcc: all@example.com\r\n";
  message.body = "größe\n.\r\nQUIT\r\n";
  const std::string text = mail_text(message, "a@example.com", {"c@d", "e@f"}, 1'700'000'000);
  std::istringstream lines(text);
  std::vector<std::string> headers;
  bool in_headers = true;
  for (std::string line; std::getline(lines, line);) {
    ASSERT_TRUE(line.ends_with('\r')) << line;
    EXPECT_LE(line.size(), 79U) << line;
    EXPECT_NE(line, ".\r");
    in_headers = in_headers && line != "\r";
    if (in_headers && line[0] != ' ') headers.push_back(line.substr(0, line.find(':')));
  }
  EXPECT_THAT(headers, ElementsAre("Date", "From", "To", "Subject", "Message-ID", "Auto-Submitted",
                                   "MIME-Version", "Content-Type"));
  EXPECT_THAT(text, HasSubstr("Date: Tue, 14 Nov 2023 22:13:20 +0000\r\n"));
  EXPECT_THAT(text, HasSubstr("Message-ID: <1234abcd-5.cvanomalyalert@example.com>\r\n"));
  EXPECT_THAT(text, HasSubstr("To: <c@d>,\r\n <e@f>\r\n"));
  EXPECT_THAT(text, Not(HasSubstr("Bcc")));
  EXPECT_THAT(text, Not(HasSubstr("QUIT")));
}

TEST(MailText, MayHaveNothingInItsNames) {
  Message message;
  message.kind = Kind::kEnd;
  EXPECT_THAT(mail_text(message, "a@b", {"c@d"}, 1), HasSubstr("Subject: \r\n"));
}

class MailChannelTest : public PlatformFake {};

TEST_F(MailChannelTest, RefusesAConfigurationThatItCannotGoBy) {
  const StopFlag stop;
  Settings settings;
  settings.mail_from = "a@b";
  settings.mail_to = "c@d";
  settings.smtp_url = "http://localhost/";
  EXPECT_EQ(MailChannel(settings, stop).send({}).reason, "SMTP_URL must be smtp or smtps");
  settings.smtp_url = "smtp://localhost:1";
  settings.mail_from = "c@d, e@f";
  EXPECT_EQ(MailChannel(settings, stop).send({}).reason, "MAIL_FROM must be one address");
  settings.mail_from = "";
  EXPECT_THROW(MailChannel(settings, stop).send({}), std::runtime_error);
  settings.mail_from = "a@b";
  settings.smtp_credentials_file = "/none";
  EXPECT_THROW(MailChannel(settings, stop).send({}), std::runtime_error);
}

}  // namespace
}  // namespace corvane::alert
