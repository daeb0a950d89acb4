#include "companions/alert/channel/journal_channel.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "tests/fakes/platform_fake_test.h"
#include "tests/support/descriptors.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/in_child.h"
#include "tests/support/scratch_dir.h"
#include "tests/unit/alert/channel/some_message.h"

namespace corvane::alert {
namespace {

sockaddr_un address_of(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path);
  return address;
}

// A journal's end of the socket.
class Journal {
 public:
  explicit Journal(const std::string& path)
      : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = address_of(path);
    if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("bind");
    }
  }
  ~Journal() { close(socket_); }
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  // A datagram, or the content of the file in it.
  std::string receive() const {
    std::string text(1 << 20, '\0');
    iovec content{text.data(), text.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))]{};
    msghdr datagram{};
    datagram.msg_iov = &content;
    datagram.msg_iovlen = 1;
    datagram.msg_control = control;
    datagram.msg_controllen = sizeof control;
    const ssize_t bytes = recvmsg(socket_, &datagram, MSG_CMSG_CLOEXEC);
    text.resize(static_cast<std::size_t>(bytes));
    const cmsghdr* header = CMSG_FIRSTHDR(&datagram);
    if (header == nullptr) return text;
    int file = -1;
    std::memcpy(&file, CMSG_DATA(header), sizeof file);
    return "file: " + text + content_of(file);
  }

 private:
  static std::string content_of(int file) {
    struct stat found {};
    fstat(file, &found);
    std::string text(static_cast<std::size_t>(found.st_size), '\0');
    const bool is_read = pread(file, text.data(), text.size(), 0) == found.st_size;
    const bool can_change = pwrite(file, "x", 1, 0) >= 0;
    const bool can_grow = ftruncate(file, found.st_size + 1) == 0;
    const bool can_shrink = ftruncate(file, 0) == 0;
    const int seals = fcntl(file, F_GET_SEALS);
    close(file);
    if (can_change || can_grow || can_shrink || (seals & F_SEAL_SEAL) == 0) return "not sealed";
    return is_read ? text : "not read";
  }

  int socket_;
};

class JournalChannelTest : public PlatformFake {
 protected:
  // Why it was not delivered; empty: it was.
  std::string sent(const Message& message, const StopFlag& until) const {
    return sent(message, until, path);
  }
  static std::string sent(const Message& message, const StopFlag& until, const std::string& to) {
    const SendResult result = JournalChannel(to, until).send(message);
    EXPECT_EQ(result.is_taken, result.reason.empty());
    return result.reason;
  }
  // In a process of its own, with a limit of this type.
  template <typename Limit>
  std::string sent_under(std::size_t amount, const Message& message) const {
    const auto send_it = [&] {
      std::string reason;
      {
        const Limit limit(amount);
        reason = sent(message, stop);
      }
      test::write_file(directory("reason"), reason);
      return 0;
    };
    EXPECT_EQ(test::in_child(send_it), 0);
    return test::read_file(directory("reason"));
  }
  // Sends without waiting until the journal takes no more.
  void fill() const {
    StopFlag already;
    already.ask();
    while (sent(some_message(), already).empty()) {
    }
  }

  const test::ScratchDir directory;
  const std::string path = directory("j");
  StopFlag stop;
};

// A field of several lines.
std::string lines_field(const std::string& name, const std::string& value) {
  std::string field = name + "\n";
  for (std::size_t i = 0; i < 8; ++i) {
    field += i < 2 ? static_cast<char>(value.size() >> (8 * i)) : '\0';
  }
  return field + value + "\n";
}

TEST(JournalEntry, HasAFieldForEverything) {
  EXPECT_EQ(journal_entry(some_message()),
            lines_field("MESSAGE", "[major] the subject\na line\n") +
                "PRIORITY=3\nSYSLOG_IDENTIFIER=cvanomalyalert\nANOMALY_ALERT=t-1\n"
                "ANOMALY_KIND=begin\nANOMALY_SEVERITY=2\nANOMALY_ID=the id\n"
                "ANOMALY_INCIDENT=the incident\nANOMALY_CLIENT=the client\n"
                "ANOMALY_POLICY=the policy\nANOMALY_SCHEDULE=the schedule\n"
                "ANOMALY_CAUSE=the cause\nANOMALY_JSON=" +
                document_of(some_message()) + "\n");
}

TEST(JournalEntry, TellsTheLengthOfALongText) {
  Message message = some_message();
  message.body = std::string(0x1234 - 20, 'x');  // with the headline and a line end 0x1234
  EXPECT_TRUE(journal_entry(message).starts_with(std::string("MESSAGE\n\x34\x12", 10) +
                                                 std::string(6, '\0') + "[major] the subject\nx"));
}

TEST(JournalEntry, IsSafeFromItsNames) {
  const std::pair<std::string Message::*, const char*> fields[] = {
      {&Message::anomaly_id, "ANOMALY_ID"},     {&Message::incident, "ANOMALY_INCIDENT"},
      {&Message::client, "ANOMALY_CLIENT"},     {&Message::policy, "ANOMALY_POLICY"},
      {&Message::schedule, "ANOMALY_SCHEDULE"}, {&Message::cause, "ANOMALY_CAUSE"}};
  for (const auto& [member, name] : fields) {
    Message message = some_message();
    message.*member = "c\xFF\nPRIORITY=0";
    EXPECT_NE(journal_entry(message).find("\n" + lines_field(name, "c\xEF\xBF\xBD\nPRIORITY=0")),
              std::string::npos)
        << name;
  }
  Message message = some_message();
  message.subject = "\xFF";
  EXPECT_NE(journal_entry(message).find("[major] \xEF\xBF\xBD\na line"), std::string::npos);
}

TEST(JournalEntry, HasThePriorityOfItsSeverityWhileThereIsSomethingToDo) {
  struct Case {
    Kind kind;
    Severity severity;
    const char* priority;
  };
  for (const Case& one : {Case{Kind::kBegin, Severity::kWarning, "4"},
                          {Kind::kBegin, Severity::kMajor, "3"},
                          {Kind::kBegin, Severity::kCritical, "2"},
                          {Kind::kRise, Severity::kCritical, "2"},
                          {Kind::kSummary, Severity::kMajor, "3"},
                          {Kind::kEnd, Severity::kCritical, "5"},
                          {Kind::kTest, Severity::kWarning, "5"}}) {
    Message message = some_message();
    message.kind = one.kind;
    message.severity = one.severity;
    EXPECT_NE(journal_entry(message).find(std::string("\nPRIORITY=") + one.priority + "\nSYSLOG_"),
              std::string::npos)
        << name_of(one.kind) << " " << one.priority;
  }
}

TEST_F(JournalChannelTest, SendsTheEntry) {
  const Journal journal(path);
  EXPECT_EQ(sent(some_message(), stop), "");
  EXPECT_EQ(journal.receive(), journal_entry(some_message()));
}

TEST_F(JournalChannelTest, SendsALargeEntryAsASealedFile) {
  const Journal journal(path);
  Message message = some_message();
  message.body = std::string(1 << 20, 'x');
  EXPECT_EQ(sent(message, stop), "");
  EXPECT_EQ(journal.receive(), "file: " + journal_entry(message));
}

TEST_F(JournalChannelTest, LeavesNothingOpen) {
  const Journal journal(path);
  const int next = test::lowest_free_descriptor();
  Message large = some_message();
  large.body = std::string(1 << 20, 'x');
  sent(some_message(), stop);
  sent(large, stop);
  EXPECT_EQ(test::lowest_free_descriptor(), next);
}

TEST_F(JournalChannelTest, WaitsForAFullJournalUntilTheStopFlag) {
  const Journal journal(path);
  fill();
  std::thread asker([&] { stop.ask(); });
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(sent(some_message(), stop),
            "cannot write to the journal: Resource temporarily unavailable");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
  asker.join();
}

TEST_F(JournalChannelTest, SendsOnceAFullJournalHasRoom) {
  const Journal journal(path);
  fill();
  std::thread reader([&] { journal.receive(); });
  EXPECT_EQ(sent(some_message(), stop), "");
  reader.join();
}

TEST_F(JournalChannelTest, SaysWhatTheSystemRefuses) {
  const Journal journal(path);
  Message large = some_message();
  large.body = std::string(1 << 20, 'x');
  // A sanitizer that meets a class for the first time needs descriptors.
  EXPECT_EQ(sent(some_message(), stop), "");
  journal.receive();
  const auto descriptors = static_cast<std::size_t>(test::lowest_free_descriptor());
  EXPECT_EQ(sent_under<test::DescriptorLimit>(descriptors, large),
            "cannot create a socket: Too many open files");
  EXPECT_EQ(sent_under<test::DescriptorLimit>(descriptors + 1, large),
            "cannot write to the journal: Too many open files");
  EXPECT_EQ(sent_under<test::FileSizeLimit>(100'000, large),
            "cannot write to the journal: File too large");
  // A journal that is only full gets no file.
  fill();
  stop.ask();
  EXPECT_EQ(sent_under<test::DescriptorLimit>(descriptors + 1, some_message()),
            "cannot write to the journal: Resource temporarily unavailable");
}

TEST_F(JournalChannelTest, SaysWhyThereIsNoJournal) {
  EXPECT_EQ(sent(some_message(), stop), "cannot connect to the journal: No such file or directory");
  const std::size_t most = sizeof sockaddr_un{}.sun_path - 1;
  EXPECT_EQ(sent(some_message(), stop, "/" + std::string(most - 1, 'x')),
            "cannot connect to the journal: No such file or directory");
  EXPECT_EQ(sent(some_message(), stop, "/" + std::string(most, 'x')), "SYSLOG_SOCKET is too long");
}

}  // namespace
}  // namespace corvane::alert
