#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "companions/alert/channel/command_channel.h"
#include "companions/alert/channel/curl_transfer.h"
#include "companions/alert/channel/journal_channel.h"
#include "companions/alert/channel/webhook_channel.h"
#include "tests/fakes/platform_fake_test.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/shell_script.h"

namespace corvane::alert {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

Message some_message() {
  Message message;
  message.alert = "t-1";
  message.severity = Severity::kMajor;
  message.subject = "s";
  message.body = "line\n";
  message.details = "{}";
  return message;
}

class Channels : public PlatformFake {
 protected:
  std::string script(const std::string& body) {
    test::write_script(directory("script"), body);
    return directory("script");
  }
  // Waits until the script has written the file whole (a line), and gives the number in it.
  int number_in(const std::string& path) const {
    for (;;) {
      std::error_code ignored;
      if (std::filesystem::exists(path, ignored)) {
        const std::string text = test::read_file(path);
        if (text.ends_with('\n')) return std::stoi(text);
      }
      std::this_thread::yield();
    }
  }

  test::ScratchDir directory;
  StopFlag stop;
};

TEST_F(Channels, ACommandGetsTheDocumentAndArgumentsWithoutAShell) {
  const std::string program =
      script("cat > " + directory("out") + "; echo \"$#:$1\" > " + directory("arguments") + "\n");
  EXPECT_TRUE(CommandChannel(program + "  $(id)  b", 10, stop).send(some_message()).is_taken);
  EXPECT_EQ(test::read_file(directory("out")), document_of(some_message()) + "\n");
  EXPECT_EQ(test::read_file(directory("arguments")), "2:$(id)\n");
}

TEST_F(Channels, ACommandThatDoesNotReadStillCounts) {
  Message message = some_message();
  message.body = std::string(1 << 20, 'x');
  EXPECT_TRUE(CommandChannel("/bin/true", 10, stop).send(message).is_taken);
  EXPECT_TRUE(CommandChannel(script("cat > /dev/null"), 10, stop).send(message).is_taken);
}

TEST_F(Channels, ACommandThatFailsTakesNothing) {
  EXPECT_EQ(CommandChannel(script("exit 3"), 10, stop).send(some_message()).reason,
            "the program ended with 3");
  EXPECT_EQ(CommandChannel(script("kill -9 $$"), 10, stop).send(some_message()).reason,
            "the program was ended by signal 9");
  EXPECT_THAT(CommandChannel(directory("none"), 10, stop).send(some_message()).reason,
              HasSubstr("No such file"));
  EXPECT_THAT(CommandChannel("relative", 10, stop).send(some_message()).reason,
              HasSubstr("full path"));
  EXPECT_THAT(CommandChannel(" ", 10, stop).send(some_message()).reason, HasSubstr("full path"));
}

TEST_F(Channels, ACommandStartsWithTheSignalsOfALogin) {
  sigset_t term;
  sigset_t former;
  sigemptyset(&term);
  sigaddset(&term, SIGTERM);
  sigaddset(&term, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &term, &former);
  EXPECT_TRUE(
      CommandChannel(script("grep SigBlk /proc/self/status > " + directory("out") + "\n"), 10, stop)
          .send(some_message())
          .is_taken);
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
  EXPECT_EQ(test::read_file(directory("out")), "SigBlk:\t0000000000000000\n");
}

TEST_F(Channels, ACommandThatHangsIsKilledWithItsChildren) {
  const std::string program = script("sleep 100 & echo $! > " + directory("child") + "; wait\n");
  EXPECT_THAT(CommandChannel(program, 1, stop).send(some_message()).reason,
              HasSubstr("longer than 1 s"));
  const int child = number_in(directory("child"));
  const auto is_running = [&] {
    std::ifstream stat("/proc/" + std::to_string(child) + "/stat");
    std::string line;
    std::getline(stat, line);
    return !line.empty() && line.find(") Z ") == std::string::npos;
  };
  while (is_running()) std::this_thread::yield();  // the test's time-out is the limit
}

TEST_F(Channels, ACommandIsBrokenOffByTheStopFlag) {
  const std::string program = script("echo 1 > " + directory("ready") + "; sleep 100\n");
  std::thread asker([&] {
    number_in(directory("ready"));
    stop.ask();
  });
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(CommandChannel(program, 60, stop).send(some_message()).is_taken);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  asker.join();
}

// A journal's end of the socket.
class Journal {
 public:
  explicit Journal(const std::string& path) : socket_(socket(AF_UNIX, SOCK_DGRAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("bind");
    }
  }
  ~Journal() { close(socket_); }
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  // A datagram, or what the file in it holds.
  std::string receive() const {
    std::string text(1 << 20, '\0');
    iovec content{text.data(), text.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))]{};
    msghdr datagram{};
    datagram.msg_iov = &content;
    datagram.msg_iovlen = 1;
    datagram.msg_control = control;
    datagram.msg_controllen = sizeof control;
    const ssize_t bytes = recvmsg(socket_, &datagram, 0);
    const cmsghdr* header = CMSG_FIRSTHDR(&datagram);
    if (header == nullptr) return text.substr(0, static_cast<std::size_t>(bytes));
    int file = -1;
    std::memcpy(&file, CMSG_DATA(header), sizeof file);
    struct stat found {};
    fstat(file, &found);
    text.resize(static_cast<std::size_t>(found.st_size));
    const ssize_t read_bytes = pread(file, text.data(), text.size(), 0);
    const bool sealed = write(file, "x", 1) < 0;
    close(file);
    return sealed && read_bytes == found.st_size ? text : "not sealed";
  }

 private:
  int socket_;
};

TEST_F(Channels, TheJournalGetsStructuredFields) {
  const Journal journal(directory("j"));
  EXPECT_TRUE(JournalChannel(directory("j"), stop).send(some_message()).is_taken);
  const std::string entry = journal.receive();
  EXPECT_EQ(entry, journal_entry(some_message()));
  const std::string text = "[major] s\nline\n";
  EXPECT_TRUE(entry.starts_with(std::string("MESSAGE\n") + static_cast<char>(text.size()) +
                                std::string(7, '\0') + text + "\nPRIORITY=3\n"));
  EXPECT_THAT(entry, HasSubstr("\nANOMALY_ALERT=t-1\n"));
}

TEST_F(Channels, ALineEndInANameMakesNoField) {
  Message message = some_message();
  message.client = "c\nPRIORITY=0";
  const std::string entry = journal_entry(message);
  EXPECT_THAT(entry, HasSubstr(std::string("ANOMALY_CLIENT\n\x0C", 16) + std::string(7, '\0') +
                               "c\nPRIORITY=0\n"));
}

TEST_F(Channels, ALargeEntryGoesToTheJournalAsAFile) {
  const Journal journal(directory("j"));
  Message message = some_message();
  message.body = std::string(1 << 20, 'x');
  EXPECT_TRUE(JournalChannel(directory("j"), stop).send(message).is_taken);
  EXPECT_EQ(journal.receive(), journal_entry(message));
}

TEST_F(Channels, AJournalThatIsFullIsWaitedForUntilTheStopFlag) {
  const Journal journal(directory("j"));
  StopFlag already;
  already.ask();  // takes what there is room for, and does not wait
  while (JournalChannel(directory("j"), already).send(some_message()).is_taken) {
  }
  std::thread asker([&] { stop.ask(); });
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_THAT(JournalChannel(directory("j"), stop).send(some_message()).reason,
              HasSubstr("the journal takes nothing"));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
  asker.join();
}

TEST_F(Channels, AJournalThatWasFullGetsItWhenThereIsRoom) {
  const Journal journal(directory("j"));
  StopFlag already;
  already.ask();
  while (JournalChannel(directory("j"), already).send(some_message()).is_taken) {
  }
  std::thread reader([&] { journal.receive(); });
  EXPECT_TRUE(JournalChannel(directory("j"), stop).send(some_message()).is_taken);
  reader.join();
}

TEST_F(Channels, WithoutAJournalNothingIsTaken) {
  EXPECT_THAT(JournalChannel(directory("none"), stop).send(some_message()).reason,
              HasSubstr("cannot be reached: No such file"));
  EXPECT_FALSE(JournalChannel(std::string(200, 'x'), stop).send(some_message()).is_taken);
}

TEST_F(Channels, TheWebhooksSignatureIsTheWellKnownOne) {
  // echo -n "1700000000.{}" | openssl dgst -sha256 -hmac key
  EXPECT_EQ(webhook_signature("key", 1700000000, "{}"),
            "t=1700000000,v1="
            "9d713ed406bb7076d4123f0dc2c39d2df5c654ed4b0cd56b52c8b4c940bd63ae");
}

TEST_F(Channels, AWebhookGoesNowhereWithoutEncryption) {
  Settings settings;
  for (const char* url :
       {"http://example.com/", "http://localhost.example.com/", "ftp://localhost/"}) {
    settings.webhook_url = url;
    EXPECT_THAT(WebhookChannel(settings, stop).send(some_message()).reason, HasSubstr("https"))
        << url;
  }
}

TEST(UrlParts, KnowsThisMachine) {
  for (const char* url :
       {"http://localhost:80/", "https://127.0.0.1/x", "smtp://[::1]:25", "http://127.3.2.1"}) {
    EXPECT_TRUE(parts_of_url(url).is_loopback) << url;
  }
  for (const char* url :
       {"http://127.0.0.1.example.com/", "http://example.com/#localhost", "smtp://[::2]",
        "http://128.0.0.1/", "https://evil\\@localhost.example"}) {
    try {
      EXPECT_FALSE(parts_of_url(url).is_loopback) << url;
    } catch (const std::runtime_error&) {  // refused, which is as good
    }
  }
}

TEST(UrlParts, RefusesWhatIsNoneOrHoldsSecrets) {
  for (const char* url : {"", "nothing at all", "http://", "https://u:p@localhost/",
                          "https://u@localhost/", "https://a\nb/"}) {
    EXPECT_THROW(parts_of_url(url), std::runtime_error) << url;
  }
}

}  // namespace
}  // namespace corvane::alert
