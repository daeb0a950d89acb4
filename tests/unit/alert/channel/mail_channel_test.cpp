#include "companions/alert/channel/mail_channel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "tests/fakes/platform_fake_test.h"
#include "tests/support/scratch_dir.h"
#include "tests/unit/alert/channel/loopback_server.h"
#include "tests/unit/alert/channel/some_message.h"

namespace corvane::alert {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

std::string refusal_of(const std::string& list) {
  try {
    mail_addresses(setting::kMailTo, list);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

TEST(MailAddresses, AreReadFromAList) {
  const auto read = [](const char* list) { return mail_addresses(setting::kMailTo, list); };
  EXPECT_THAT(read("a@b"), ElementsAre("a@b"));
  EXPECT_THAT(read(" a@b ,\tc+d@e.example.com,,"), ElementsAre("a@b", "c+d@e.example.com"));
  EXPECT_THAT(read("a@b c@d"), ElementsAre("a@b", "c@d"));
  EXPECT_THAT(read("azAZ09._+-=~/@azAZ09._+-=~/"), ElementsAre("azAZ09._+-=~/@azAZ09._+-=~/"));
}

TEST(MailAddresses, NothingElseGetsThrough) {
  for (const char* list : {"", " , ", "\t"}) EXPECT_EQ(refusal_of(list), "MAIL_TO is empty");
  for (const char* list : {"a", "@b", "a@", "@", "a@b@c", "a@@b", "a@b c", "c a@b", "<a@b>",
                           "a@b\r\nBcc: x@y", "a@b>\nRCPT TO:<x@y>", "\"a\"@b", "gr\xC3\xB6@b",
                           "a@b;c@d", "a@b:", "a@b`", "a@b{", "a@b[", "a@b%"}) {
    EXPECT_EQ(refusal_of(list), "MAIL_TO contains an invalid mail address") << list;
  }
}

Message mailed() {
  Message message = some_message();
  message.alert = "1234abcd-5";
  return message;
}

// Encoded by base64(1).
TEST(MailText, IsTheWholeMail) {
  Message message = mailed();
  message.details = R"({"word":"gr)"
                    "\xC3\xB6"
                    R"(sse"})";
  EXPECT_EQ(mail_text(message, "a@example.com", {"c@d", "e@f"}, 1'700'000'000),
            "Date: Tue, 14 Nov 2023 22:13:20 +0000\r\n"
            "From: <a@example.com>\r\n"
            "To: <c@d>,\r\n <e@f>\r\n"
            "Subject: =?UTF-8?B?W21ham9yXSB0aGUgc3ViamVjdA==?=\r\n"
            "Message-ID: <1234abcd-5.cvanomalyalert@example.com>\r\n"
            "Auto-Submitted: auto-generated\r\n"
            "MIME-Version: 1.0\r\n"
            "Content-Type: multipart/mixed; boundary=\"=_1234abcd-5\"\r\n\r\n"
            "--=_1234abcd-5\r\n"
            "Content-Type: text/plain; charset=utf-8\r\n"
            "Content-Transfer-Encoding: base64\r\n\r\n"
            "W21ham9yXSB0aGUgc3ViamVjdAoKYSBsaW5lCg==\r\n"
            "\r\n--=_1234abcd-5\r\n"
            "Content-Type: application/json\r\n"
            "Content-Disposition: attachment; filename=\"anomaly.json\"\r\n"
            "Content-Transfer-Encoding: base64\r\n\r\n"
            "eyJzY2hlbWEiOjEsImFsZXJ0IjoiMTIzNGFiY2QtNSIsImtpbmQiOiJiZWdpbiIsInN0YXRlIjoi\r\n"
            "b3BlbiIsInNldmVyaXR5IjoyLCJzdWJqZWN0IjoiW21ham9yXSB0aGUgc3ViamVjdCIsInRleHQi\r\n"
            "OiJhIGxpbmVcbiIsImlkIjoidGhlIGlkIiwiaW5jaWRlbnQiOiJ0aGUgaW5jaWRlbnQiLCJjbGll\r\n"
            "bnROYW1lIjoidGhlIGNsaWVudCIsInBvbGljeU5hbWUiOiJ0aGUgcG9saWN5Iiwic2NoZWR1bGVO\r\n"
            "YW1lIjoidGhlIHNjaGVkdWxlIiwiY2F1c2UiOiJ0aGUgY2F1c2UiLCJjcmVhdGVkIjoxMDEsInNp\r\n"
            "bmNlIjoxMDIsInJlY29yZHMiOjEwMywiZGV0YWlscyI6eyJ3b3JkIjoiZ3LDtnNzZSJ9fQ==\r\n"
            "\r\n--=_1234abcd-5--\r\n");
}

TEST(MailText, HasTheDateOfEveryDayAndMonth) {
  const std::pair<std::int64_t, const char*> dates[] = {
      {1704067201, "Mon, 1 Jan 2024 00:00:01 +0000"},
      {1706832120, "Fri, 2 Feb 2024 00:02:00 +0000"},
      {1709521445, "Mon, 4 Mar 2024 03:04:05 +0000"},
      {1712052367, "Tue, 2 Apr 2024 10:06:07 +0000"},
      {1714521600, "Wed, 1 May 2024 00:00:00 +0000"},
      {1717632000, "Thu, 6 Jun 2024 00:00:00 +0000"},
      {1719791999, "Sun, 30 Jun 2024 23:59:59 +0000"},
      {1720224000, "Sat, 6 Jul 2024 00:00:00 +0000"},
      {1722988800, "Wed, 7 Aug 2024 00:00:00 +0000"},
      {1725148800, "Sun, 1 Sep 2024 00:00:00 +0000"},
      {1728604800, "Fri, 11 Oct 2024 00:00:00 +0000"},
      {1731888000, "Mon, 18 Nov 2024 00:00:00 +0000"},
      {1735603200, "Tue, 31 Dec 2024 00:00:00 +0000"}};
  for (const auto& [seconds, date] : dates) {
    EXPECT_THAT(mail_text(mailed(), "a@b", {"c@d"}, seconds),
                StartsWith(std::string("Date: ") + date + "\r\n"));
  }
}

TEST(MailText, HasOnlyTheHeadersThatItShould) {
  Message message = mailed();
  message.subject =
      "gr\xC3\xB6\xC3\x9F"
      "e " +
      std::string(300, 'x') + "\r\nBcc: all@example.com\r\n";
  message.body =
      "gr\xC3\xB6\xC3\x9F"
      "e\n.\r\nQUIT\r\n" +
      std::string(300, 'y');
  const std::string text = mail_text(message, "a@example.com", {"c@d", "e@f"}, 1'700'000'000);
  std::istringstream lines(text);
  std::vector<std::string> headers;
  std::size_t longest = 0;
  bool in_headers = true;
  for (std::string line; std::getline(lines, line);) {
    ASSERT_TRUE(line.ends_with('\r')) << line;
    longest = std::max(longest, line.size() - 1);
    EXPECT_NE(line, ".\r");
    in_headers = in_headers && line != "\r";
    if (in_headers && line[0] != ' ') headers.push_back(line.substr(0, line.find(':')));
  }
  EXPECT_LE(longest, 78U);
  EXPECT_THAT(headers, ElementsAre("Date", "From", "To", "Subject", "Message-ID", "Auto-Submitted",
                                   "MIME-Version", "Content-Type"));
  EXPECT_THAT(text, Not(HasSubstr("Bcc")));
  EXPECT_THAT(text, Not(HasSubstr("QUIT")));
}

// The subject's header for a resolved incident, whose subject stands alone.
std::string subject_header(const std::string& subject) {
  Message message = mailed();
  message.kind = Kind::kEnd;
  message.subject = subject;
  const std::string text = mail_text(message, "a@b", {"c@d"}, 1);
  const std::size_t begin = text.find("Subject: ");
  return text.substr(begin, text.find("\r\nMessage-ID") - begin);
}

TEST(MailText, SplitsALongSubjectBetweenCharacters) {
  const auto word = [](const std::string& encoded) { return "=?UTF-8?B?" + encoded + "?="; };
  std::string x42;
  for (int i = 0; i < 14; ++i) x42 += "eHh4";  // "xxx"
  EXPECT_EQ(subject_header(""), "Subject: ");
  EXPECT_EQ(subject_header(std::string(42, 'x')), "Subject: " + word(x42));
  EXPECT_EQ(subject_header(std::string(43, 'x')), "Subject: " + word(x42) + "\r\n " + word("eA=="));
  EXPECT_EQ(subject_header(std::string(41, 'x') + "\xC3\xB6"),
            "Subject: " + word(x42.substr(0, 52) + "eHg=") + "\r\n " + word("w7Y="));
  EXPECT_EQ(subject_header("\xFF"), "Subject: " + word("77+9"));
}

TEST(MailText, RepairsWhatIsNoUtf8) {
  Message message = mailed();
  message.body = "\xFF\n";
  EXPECT_THAT(mail_text(message, "a@b", {"c@d"}, 1),
              HasSubstr("W21ham9yXSB0aGUgc3ViamVjdAoK77+9Cg==\r\n"));
}

TEST(MailText, HasNoEmptyLineAfterAFullOne) {
  Message message = mailed();
  message.body = std::string(57 - headline(message).size() - 2, 'x');
  const std::string text = mail_text(message, "a@b", {"c@d"}, 1);
  const std::size_t line = text.find("\r\n\r\nW21h") + 4;
  EXPECT_EQ(text.find("\r\n\r\n--=_", line), line + 76);
}

// A mail server that answers as the test says and keeps what it is told.
class MailServer {
 public:
  std::vector<std::string> commands;  // read them when the transfer is over
  std::string mail;
  std::string extensions;  // of EHLO, with their codes and line ends
  std::string refused;     // the beginning of a command that gets `refusal`
  std::string refusal = "550 no";
  LoopbackServer server{[this](Conversation& client) { serve(client); }};  // it ends first

 private:
  void serve(Conversation& client) {
    client.send("220 ready\r\n");
    for (std::string line; (line = client.read_until("\r\n")).ends_with("\r\n");) {
      line.resize(line.size() - 2);
      commands.push_back(line);
      if (!refused.empty() && line.starts_with(refused)) {
        client.send(refusal + "\r\n");
      } else if (line.starts_with("EHLO")) {
        client.send(extensions + "250 fine\r\n");
      } else if (line.starts_with("AUTH")) {
        client.send("334 \r\n");
      } else if (line == "AHVzZXIAcGFzczp3b3Jk") {  // "\0user\0pass:word"
        client.send("235 welcome\r\n");
      } else if (line == "DATA") {
        client.send("354 go on\r\n");
        mail = client.read_until("\r\n.\r\n");
        client.send(refused == "." ? refusal + "\r\n" : "250 fine\r\n");
      } else {
        client.send("250 fine\r\n");
      }
      if (line == "QUIT") return;
    }
  }
};

class MailChannelTest : public PlatformFake {
 protected:
  MailChannelTest() {
    settings.mail_from = "from@example.com";
    settings.mail_to = "to@example.com, too@example.com";
    settings.smtp_url = "smtp://" + smtp.server.at();
  }
  void use_credentials(const std::string& content) {
    settings.smtp_credentials_file = directory("secret");
    test::write_file(directory("secret"), content);
    chmod(directory("secret").c_str(), 0600);
  }
  // Why it was not delivered; empty: it was.
  std::string sent(const Message& message = mailed()) {
    try {
      const SendResult result = MailChannel(settings, stop).send(message);
      EXPECT_EQ(result.is_taken, result.reason.empty());
      return result.reason;
    } catch (const std::runtime_error& error) {
      return std::string("thrown: ") + error.what();
    }
  }
  // Without the first, which names this machine.
  std::vector<std::string> commands() const {
    return {smtp.commands.begin() + (smtp.commands.empty() ? 0 : 1), smtp.commands.end()};
  }

  const test::ScratchDir directory;
  MailServer smtp;
  Settings settings;
  StopFlag stop;
};

TEST_F(MailChannelTest, SendsTheMailToEverybody) {
  fake.now = 1'700'000'456;
  EXPECT_EQ(sent(), "");
  EXPECT_THAT(commands(), ElementsAre("MAIL FROM:<from@example.com>", "RCPT TO:<to@example.com>",
                                      "RCPT TO:<too@example.com>", "DATA", "QUIT"));
  EXPECT_EQ(smtp.mail, mail_text(mailed(), "from@example.com",
                                 {"to@example.com", "too@example.com"}, 1'700'000'456) +
                           ".\r\n");
}

TEST_F(MailChannelTest, SendsALargeMailWhole) {
  Message message = mailed();
  message.body = std::string(300'000, 'x');
  EXPECT_EQ(sent(message), "");
  EXPECT_EQ(smtp.mail, mail_text(message, "from@example.com", {"to@example.com", "too@example.com"},
                                 fake.now) +
                           ".\r\n");
}

TEST_F(MailChannelTest, IsNotDeliveredUnlessTheServerAcceptsItForEverybody) {
  smtp.refused = "RCPT TO:<too@";
  EXPECT_THAT(sent(), StartsWith("127.0.0.1: "));
  EXPECT_EQ(smtp.mail, "");
  smtp.refused = "MAIL";
  EXPECT_EQ(sent(), "127.0.0.1: Failed sending data to the peer (last reply 550)");
  smtp.refused = ".";
  smtp.refusal = "451 later";
  EXPECT_THAT(sent(), testing::EndsWith("(last reply 451)"));
}

TEST_F(MailChannelTest, LogsInWithTheCredentials) {
  smtp.extensions = "250-AUTH PLAIN\r\n";
  use_credentials("user:pass:word\n");
  EXPECT_EQ(sent(), "");
  EXPECT_EQ(commands()[0], "AUTH PLAIN");
  EXPECT_EQ(commands()[1], "AHVzZXIAcGFzczp3b3Jk");
}

TEST_F(MailChannelTest, RefusesCredentialsThatAreNone) {
  for (const char* content : {"user", ":password", "user:one\ntwo", "us\ner:password"}) {
    use_credentials(content);
    EXPECT_EQ(sent(), "thrown: secret file " + directory("secret") +
                          " cannot be used: it must contain one line, user:password");
  }
  use_credentials("");
  EXPECT_EQ(sent(), "thrown: secret file " + directory("secret") + " cannot be used: it is empty");
  EXPECT_EQ(smtp.server.connections(), 0);
}

TEST_F(MailChannelTest, UsesTlsOnThisMachineForAPasswordOnly) {
  smtp.extensions = "250-STARTTLS\r\n250-AUTH PLAIN\r\n";
  smtp.refused = "STARTTLS";
  smtp.refusal = "454 not now";
  EXPECT_EQ(sent(), "");
  EXPECT_THAT(commands(), Not(testing::Contains("STARTTLS")));
  smtp.commands.clear();
  use_credentials("user:pass:word");
  EXPECT_EQ(sent(), "");
  EXPECT_EQ(commands()[0], "STARTTLS");
}

TEST_F(MailChannelTest, GoesNowhereElseWithoutTls) {
  settings.smtp_url = "smtp://" + smtp.server.at("0.0.0.0");
  EXPECT_EQ(sent(), "0.0.0.0: Requested SSL level failed (last reply 250)");
  EXPECT_EQ(smtp.mail, "");
  EXPECT_THAT(commands(), testing::IsEmpty());
}

TEST_F(MailChannelTest, MayBeEncryptedFromTheBeginning) {
  std::string hello;
  {
    // Of the first connection: the second may be given up before it says anything.
    LoopbackServer silent([&](Conversation& client) {
      if (hello.empty()) hello = client.read_bytes(1);
    });
    settings.smtp_url = "smtps://" + silent.at();
    EXPECT_THAT(sent(), StartsWith("127.0.0.1: "));
    settings.ca_file = directory("none");
    EXPECT_EQ(sent(), "127.0.0.1: Problem with the SSL CA cert (path? access rights?)");
  }
  EXPECT_EQ(hello, "\x16");  // a TLS handshake
}

TEST_F(MailChannelTest, IsInterruptedByTheStopFlag) {
  stop.ask();
  EXPECT_EQ(sent(), "127.0.0.1: Operation was aborted by an application callback");
}

TEST_F(MailChannelTest, RefusesAConfigurationThatItCannotUse) {
  for (const char* url : {"http://localhost/", "smtpx://localhost"}) {
    settings.smtp_url = url;
    EXPECT_EQ(sent(), "SMTP_URL must begin with smtp:// or smtps://") << url;
  }
  settings.smtp_url = "nothing at all";
  EXPECT_EQ(sent(), "thrown: SMTP_URL is not a valid URL");
  settings.smtp_url = "smtp://localhost:1";
  settings.mail_from = "c@d, e@f";
  EXPECT_EQ(sent(), "MAIL_FROM must be exactly one address");
  settings.mail_from = "";
  EXPECT_EQ(sent(), "thrown: MAIL_FROM is empty");
  settings.mail_from = "a@b";
  settings.mail_to = "c";
  EXPECT_EQ(sent(), "thrown: MAIL_TO contains an invalid mail address");
}

}  // namespace
}  // namespace corvane::alert
