#include "companions/alert/delivery/sender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <stdexcept>

#include "tests/support/idle.h"
#include "tests/unit/alert/alert_world.h"

namespace corvane::alert {
namespace {

using ::testing::HasSubstr;

// Answers as the test says; takes everything that comes after.
class Scripted : public Channel {
 public:
  SendResult send(const Message& message) override {
    got.push_back(message);
    if (on_send) on_send();
    if (answers.empty()) return {true, ""};
    const std::string reason = answers.front();
    answers.pop_front();
    if (reason == "throw") throw std::runtime_error("broken");
    return {reason.empty(), reason};
  }

  std::vector<Message> got;
  std::deque<std::string> answers;  // reasons; empty: taken
  std::function<void()> on_send;
};

class SenderTest : public AlertWorld {
 protected:
  using Line = fake::LogLine;
  using Step = Sender::Step;

  SenderTest() { add("a", "c"); }
  void SetUp() override {
    AlertWorld::SetUp();
    fake.now = kFirst;
  }
  void add(const std::string& id, const std::string& client) {
    anomaly(id, details_of(client, id, 3, kFirst));
    pass();
  }

  std::string state_file = directory_("state.db");
  std::string dead = directory_("dead");
  Scripted channel;
  StopFlag stop;
  Sender sender{kMail, {state_file, dead}, channel, stop};
  const std::string program = "cvanomalyalert";
};

TEST_F(SenderTest, SendsWhatIsDueOnce) {
  EXPECT_EQ(sender.step(), Step::kTaken);
  EXPECT_EQ(sender.step(), Step::kNothing);
  EXPECT_EQ(channel.got.size(), 1U);
  EXPECT_TRUE(fake::log_lines().empty());
  EXPECT_EQ(sender.seconds_to_next(60), 60);
}

TEST_F(SenderTest, SaysAReasonOnceAndThatItIsOver) {
  channel.answers = {"no route", "no route"};
  EXPECT_EQ(sender.step(), Step::kFailed);
  EXPECT_EQ(sender.step(), Step::kNothing);
  fake.now += 100;
  EXPECT_EQ(sender.step(), Step::kFailed);
  EXPECT_EQ(fake::log_lines(),
            (std::vector<Line>{{8, program, "Channel mail failed, trying again: no route"}}));
  fake.now += 100;
  EXPECT_EQ(sender.step(), Step::kTaken);
  EXPECT_EQ(fake::log_lines().back(), (Line{4, program, "Channel mail works again"}));
  EXPECT_EQ(fake::log_lines().size(), 2U);
}

TEST_F(SenderTest, SaysAReasonAgainAfterTheChannelWorked) {
  add("b", "d");
  channel.answers = {"no route", "", "", "no route"};
  for (const Step expected : {Step::kFailed, Step::kTaken, Step::kTaken}) {
    EXPECT_EQ(sender.step(), expected);
    fake.now += 100;
  }
  add("e", "f");
  EXPECT_EQ(sender.step(), Step::kFailed);
  EXPECT_EQ(fake::log_lines(),
            (std::vector<Line>{{8, program, "Channel mail failed, trying again: no route"},
                               {4, program, "Channel mail works again"},
                               {8, program, "Channel mail failed, trying again: no route"}}));
}

TEST_F(SenderTest, SaysEachNewReason) {
  for (const char* reason : {"no route", "refused", "no route", ""}) {
    channel.answers.push_back(reason);
    sender.step();
    fake.now += 1000;
  }
  std::vector<std::string> said;
  for (const Line& line : fake::log_lines()) said.push_back(line.text);
  EXPECT_EQ(said, (std::vector<std::string>{"Channel mail failed, trying again: no route",
                                            "Channel mail failed, trying again: refused",
                                            "Channel mail failed, trying again: no route",
                                            "Channel mail works again"}));
}

TEST_F(SenderTest, KnowsWhenThereIsSomethingToDo) {
  EXPECT_EQ(sender.seconds_to_next(60), 0);
  sender.step();
  EXPECT_EQ(sender.seconds_to_next(60), 60);
  EXPECT_EQ(sender.seconds_to_next(7), 7);
}

TEST_F(SenderTest, WritesAllThatIsOverdueAHundredAtATime) {
  settings_.storm_limit = 1000;
  Transaction transaction(*detection_);
  for (int i = 0; i < 200; ++i) {
    const std::string name = "more" + std::to_string(i);
    anomaly(name, details_of(name, name, 3, kFirst));
  }
  transaction.commit();
  pass();
  channel.answers = {"refused", "refused"};
  sender.step();
  fake.now += kDay;
  EXPECT_EQ(sender.step(), Step::kFailed);
  std::vector<std::string> said;
  for (const Line& line : fake::log_lines(16)) said.push_back(line.text);
  const std::string now_in = " not delivered for a day, now in " + dead;
  EXPECT_EQ(said, (std::vector<std::string>{"Channel mail: 100 messages" + now_in,
                                            "Channel mail: 100 messages" + now_in,
                                            "Channel mail: 1 message" + now_in}));
  const std::string letters = test::read_file(dead);
  EXPECT_EQ(std::count(letters.begin(), letters.end(), '\n'), 201);
  EXPECT_THAT(letters, HasSubstr("\"given_up\":" + std::to_string(kFirst + kDay)));
}

TEST_F(SenderTest, AnExceptionOfTheChannelIsAFailure) {
  channel.answers = {"throw"};
  EXPECT_EQ(sender.step(), Step::kFailed);
  EXPECT_THAT(fake::log_lines(8).at(0).text, HasSubstr("broken"));
}

TEST_F(SenderTest, WritesDeadLettersAfterADay) {
  channel.answers = {"refused", "refused again"};
  sender.step();
  fake.now += kDay;
  EXPECT_EQ(sender.step(), Step::kFailed);
  const std::string letters = test::read_file(dead);
  EXPECT_EQ(std::count(letters.begin(), letters.end(), '\n'), 1);
  EXPECT_THAT(letters, HasSubstr(R"("channel":"mail")"));
  EXPECT_THAT(letters, HasSubstr(R"("reason":"refused again")"));
  EXPECT_THAT(letters, HasSubstr(R"("clientName":"c")"));
  ASSERT_EQ(fake::log_lines(16).size(), 1U);
  EXPECT_EQ(fake::log_lines(16).at(0).text,
            "Channel mail: 1 message not delivered for a day, now in " + dead);
  fake.now += kDay;
  EXPECT_EQ(sender.step(), Step::kNothing);
  EXPECT_EQ(channel.got.size(), 2U);
  EXPECT_EQ(test::read_file(dead), letters);
}

TEST_F(SenderTest, AWeekOfStandstillIsNoFailureOfTheChannel) {
  channel.answers = {"refused"};
  sender.step();
  fake.now += 7 * kDay;
  EXPECT_EQ(sender.step(), Step::kTaken);
  EXPECT_FALSE(std::filesystem::exists(dead));
}

TEST_F(SenderTest, NothingIsGivenUpThatCannotBeWritten) {
  std::filesystem::create_directory(dead);
  channel.answers = {"refused", "refused", "refused"};
  sender.step();
  fake.now += kDay;
  EXPECT_EQ(sender.step(), Step::kFailed);
  fake.now += kDay;
  EXPECT_EQ(sender.step(), Step::kFailed);
  EXPECT_EQ(fake::log_lines(16).at(0).text,
            "Cannot write the dead letters: " + dead + ": Is a directory");
  fake.now += kDay;
  EXPECT_EQ(sender.step(), Step::kTaken);
  EXPECT_EQ(fake::log_lines(16).size(), 1U);
}

TEST_F(SenderTest, WhatWeBreakOffIsNoFailureOfTheChannel) {
  channel.answers = {"broken off"};
  channel.on_send = [&] { stop.ask(); };
  EXPECT_EQ(sender.step(), Step::kNothing);
  EXPECT_TRUE(fake::log_lines().empty());
  EXPECT_EQ(state_count("channel"), "0");
}

TEST_F(SenderTest, WhatWasTakenWhileWeAreToEndIsNoted) {
  channel.on_send = [&] { stop.ask(); };
  EXPECT_EQ(sender.step(), Step::kTaken);
  EXPECT_THAT(take(kMail), ::testing::IsEmpty());
}

TEST_F(SenderTest, AnOutcomeThatCannotBeNotedIsLeftWhenWeAreToEnd) {
  test::query(state_->handle(),
              "CREATE TRIGGER full BEFORE UPDATE ON delivery WHEN new.state = "
              "2 BEGIN SELECT RAISE(ABORT, 'disk full'); END");
  channel.on_send = [&] { stop.ask(); };
  EXPECT_EQ(sender.step(), Step::kTaken);
  EXPECT_EQ(channel.got.size(), 1U);
  EXPECT_EQ(fake::log_lines(16).size(), 1U);
}

TEST_F(SenderTest, AnOutcomeIsNotedAsSoonAsItCanBe) {
  // The trigger makes the sender's update fail. It is dropped once the failure is logged.
  channel.on_send = [&] {
    test::query(state_->handle(),
                "CREATE TRIGGER full BEFORE UPDATE ON delivery WHEN new.state = "
                "2 BEGIN SELECT RAISE(ABORT, 'disk full'); END");
  };
  std::thread repair([&] {
    while (fake::log_lines(16).empty()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the sender rests meanwhile
    StateDatabase other(state_file);
    test::query(other.handle(), "DROP TRIGGER full");
  });
  EXPECT_TRUE(test::is_idle_during([&] { EXPECT_EQ(sender.step(), Step::kTaken); }));
  repair.join();
  EXPECT_THAT(fake::log_lines(16).at(0).text,
              HasSubstr("Cannot record the outcome for channel mail, trying again: "));
  EXPECT_EQ(channel.got.size(), 1U);
  EXPECT_EQ(sender.step(), Step::kNothing);
}

}  // namespace
}  // namespace corvane::alert
