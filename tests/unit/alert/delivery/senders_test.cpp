#include "companions/alert/delivery/senders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include "tests/support/idle.h"
#include "tests/support/in_child.h"
#include "tests/support/shell_script.h"
#include "tests/unit/alert/alert_world.h"

namespace corvane::alert {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// One message for the web service and one for the command, which is a script.
class SendersTest : public AlertWorld {
 protected:
  SendersTest() {
    settings_.mail_to.clear();
    settings_.mail_severity = 0;
    settings_.command = directory_("command");
    settings_.command_severity = 1;
    settings_.command_seconds = 60;
    test::write_script(settings_.command, "cat > /dev/null; echo ran >> " + directory_("ran"));
    anomaly("a", details_of("c", "a", 3, kFirst));
    pass();
  }
  void SetUp() override {
    AlertWorld::SetUp();
    fake.now = kFirst;
    fake.handler = [this](const fake::HttpRequest&) {
      while (is_web_hanging_) std::this_thread::yield();
      return fake::HttpAnswer{.result = 0, .status = 201, .body = R"({"data":{}})"};
    };
  }

  std::vector<std::string> states(const std::string& channel) {
    return test::query_column(state_->handle(), "SELECT state FROM delivery WHERE channel = '" +
                                                    channel + "' ORDER BY message");
  }
  std::string runs() {
    const std::string file = directory_("ran");
    return std::filesystem::exists(file) ? test::read_file(file) : "";
  }
  static std::size_t requests() {
    const auto held = fake::lock();
    return fake::state().requests.size();
  }
  template <typename Condition>
  static bool comes(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
  }
  bool is_delivered(const std::string& channel, std::size_t messages = 1) {
    return comes([&] {
      const std::vector<std::string> all = states(channel);
      return all.size() == messages &&
             std::ranges::all_of(all, [](const std::string& state) { return state == "2"; });
    });
  }
  static void rest() { std::this_thread::sleep_for(std::chrono::milliseconds(100)); }
  void another() {
    anomaly("b", details_of("d", "b", 3, kFirst));
    pass();
  }

  std::atomic<bool> is_web_hanging_ = false;
  Senders senders_{{directory_("state.db"), directory_("dead")}, "master01"};
};

TEST_F(SendersTest, SendToTheWebServiceAndToEachConfiguredChannel) {
  senders_.start(settings_, {});
  EXPECT_TRUE(is_delivered(kWeb));
  EXPECT_TRUE(is_delivered(kCommand));
  EXPECT_EQ(runs(), "ran\n");
  EXPECT_TRUE(test::is_idle_during(&rest));
  {
    const auto held = fake::lock();
    EXPECT_EQ(fake.requests.at(0).server, "master01");
  }
  another();
  senders_.wake();
  EXPECT_TRUE(is_delivered(kWeb, 2));
  EXPECT_TRUE(is_delivered(kCommand, 2));
  EXPECT_TRUE(senders_.end(20'000, true));
}

TEST_F(SendersTest, AreOneForEachChannel) {
  is_web_hanging_ = true;
  senders_.start(settings_, {kWeb, kCommand});
  senders_.start(settings_, {kWeb});
  EXPECT_TRUE(is_delivered(kCommand));
  is_web_hanging_ = false;
  EXPECT_TRUE(is_delivered(kWeb));
  EXPECT_TRUE(senders_.end(20'000, true));
  EXPECT_EQ(requests(), 1U);
  EXPECT_EQ(runs(), "ran\n");
}

TEST_F(SendersTest, OthersAreOnesThatAreNoLongerConfigured) {
  Settings without = settings_;
  without.command.clear();
  without.command_severity = 0;
  senders_.start(without, {kCommand});
  EXPECT_TRUE(comes([] { return !fake::log_lines(8).empty(); }));
  EXPECT_EQ(fake::log_lines(8).at(0).text,
            "Channel command failed, trying again: the channel is not configured: see "
            "ALERT_SETTINGS in anomaly_config.conf");
  EXPECT_TRUE(senders_.end(20'000, true));
  EXPECT_EQ(runs(), "");
}

TEST_F(SendersTest, EndWithoutTheWebServiceLeavesThatOne) {
  senders_.start(settings_, {});
  EXPECT_TRUE(is_delivered(kWeb));
  EXPECT_TRUE(is_delivered(kCommand));
  EXPECT_TRUE(senders_.end(20'000, false));
  another();
  senders_.wake();
  EXPECT_TRUE(is_delivered(kWeb, 2));
  EXPECT_THAT(states(kCommand), ElementsAre("2", "0"));
  EXPECT_TRUE(senders_.end(20'000, true));
}

TEST_F(SendersTest, NothingIsSentAfterTheEnd) {
  senders_.start(settings_, {});
  EXPECT_TRUE(is_delivered(kWeb));
  EXPECT_TRUE(senders_.end(20'000, true));
  another();
  senders_.wake();
  EXPECT_EQ(requests(), 1U);
  EXPECT_EQ(states(kWeb).back(), "0");
}

TEST_F(SendersTest, WhatHangsIsCancelledAfterHalfOfTheTime) {
  test::write_script(settings_.command, "echo ran >> " + directory_("ran") + "; exec sleep 60");
  senders_.start(settings_, {});
  EXPECT_TRUE(comes([&] { return !runs().empty(); }));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(test::is_idle_during([&] { senders_.end(1000, false); }));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(500));
  EXPECT_TRUE(senders_.end(20'000, false));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(9));
  EXPECT_THAT(states(kCommand), ElementsAre("0"));
  EXPECT_THAT(fake::log_lines(8), IsEmpty()) << "that is no failure of the channel";
}

TEST_F(SendersTest, WhatHangsIsCancelledWithItsSender) {
  test::write_script(settings_.command, "echo ran >> " + directory_("ran") + "; exec sleep 60");
  std::chrono::steady_clock::time_point begin;
  {
    Senders gone({directory_("state.db"), directory_("dead")}, "master01");
    gone.start(settings_, {});
    EXPECT_TRUE(comes([&] { return !runs().empty(); }));
    begin = std::chrono::steady_clock::now();
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(9));
  EXPECT_THAT(states(kCommand), ElementsAre("0"));
  EXPECT_THAT(fake::log_lines(8), IsEmpty()) << "that is no failure of the channel";
}

TEST_F(SendersTest, WhatCannotBeCancelledStays) {
  is_web_hanging_ = true;
  senders_.start(settings_, {});
  EXPECT_TRUE(comes([] { return requests() == 1; }));
  EXPECT_FALSE(senders_.end(20, true));
  is_web_hanging_ = false;
  EXPECT_TRUE(senders_.end(20'000, true));
  EXPECT_THAT(states(kWeb), ElementsAre("2"));
}

TEST_F(SendersTest, SayThatTheStateDatabaseCannotBeUsed) {
  Senders lost({directory_("no_such_folder/state.db"), directory_("dead")}, "master01");
  lost.start({}, {});
  EXPECT_TRUE(comes([] { return !fake::log_lines(16).empty(); }));
  EXPECT_THAT(fake::log_lines(16).at(0).text,
              ::testing::StartsWith(
                  "Channel web cannot use the state database, trying again: Could not open"));
  EXPECT_TRUE(test::is_idle_during(&rest));
  lost.end(200, true);  // cancels its pause
  EXPECT_TRUE(lost.end(20'000, true));
  EXPECT_EQ(fake::log_lines(16).size(), 1U);
}

std::atomic<int> opened_databases = 0;

int count_opened_database() { return ++opened_databases, SQLITE_OK; }

// In a process of its own, whose signals cut the pauses between the attempts short.
TEST_F(SendersTest, SayOnceWhyTheStateDatabaseCannotBeUsed) {
  const auto try_often = [this] {
    test::write_file(directory_("broken.db"), std::string(4096, 'x'));
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(&count_opened_database));
    std::signal(SIGUSR1, [](int) {});
    Senders broken({directory_("broken.db"), directory_("dead")}, "master01");
    broken.start({}, {});
    sigset_t cut_short;
    sigemptyset(&cut_short);
    sigaddset(&cut_short, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &cut_short, nullptr);  // left to the thread of the sender
    EXPECT_TRUE(comes([] {
      kill(getpid(), SIGUSR1);
      return opened_databases >= 4;
    }));
    EXPECT_EQ(fake::log_lines(16).size(), 1U);
    EXPECT_EQ(fake::log_lines(16).at(0).text,
              "Channel web cannot use the state database, trying again: Query failed: file is not "
              "a database");
    return 0;
  };
  EXPECT_EQ(test::in_child(try_often), 0);
}

}  // namespace
}  // namespace corvane::alert
