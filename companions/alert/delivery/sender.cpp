#include "companions/alert/delivery/sender.h"

#include <chrono>
#include <exception>
#include <optional>
#include <utility>
#include <vector>

#include "companions/alert/channel/channel_factory.h"
#include "companions/alert/delivery/dead_letter.h"
#include "companions/common/error_text.h"
#include "finding/words.h"
#include "platform/clock.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"

namespace corvane::alert {

namespace {

constexpr std::size_t kDeadAtOnce = 100;
constexpr std::chrono::seconds kTryAgainAfter(1);
constexpr std::chrono::seconds kLongestSleep(60);
constexpr std::chrono::seconds kSleepAfterProblem(5);

}  // namespace

Sender::Sender(std::string name, SenderFiles files, Channel& channel, const StopFlag& stop)
    : name_(std::move(name)),
      files_(std::move(files)),
      state_(files_.state),
      outbox_(state_),
      channel_(channel),
      stop_(stop) {}

Sender::Step Sender::step() {
  const std::optional<Delivery> delivery = outbox_.begin(name_, now());
  if (!delivery) return Step::kNothing;
  const SendResult result = send(delivery->content);
  if (result.is_taken) {
    note([&] { outbox_.taken(*delivery, now()); });
    if (!problem_.empty()) {
      logmsgf(kLogEvent, kAlertProgram, "Channel %s works again", name_.c_str());
    }
    problem_.clear();
    return Step::kTaken;
  }
  // A message that was cancelled because this program ends is no failure of the channel.
  if (stop_.is_asked()) return Step::kNothing;
  note([&] { outbox_.failed(*delivery, result.reason, now()); });
  if (result.reason != problem_) {
    logmsgf(kLogWarning, kAlertProgram, "Channel %s failed, trying again: %s", name_.c_str(),
            result.reason.c_str());
  }
  problem_ = result.reason;
  // Only after an attempt: if this program was down for long, the channel may work now.
  while (give_up_overdue()) {
  }
  return Step::kFailed;
}

SendResult Sender::send(const Message& message) {
  try {
    return channel_.send(message);
  } catch (const std::exception& error) {
    return {false, error.what()};
  }
}

// A message must not be sent again only because its outcome could not be recorded.
void Sender::note(const std::function<void()>& write) {
  while (true) {
    try {
      write();
      return;
    } catch (const std::exception& error) {
      complain("Cannot record the outcome for channel " + name_ +
               ", trying again: " + reason_of(error));
    }
    if (stop_.is_asked()) return;
    stop_.wait(kTryAgainAfter);
  }
}

// Some of them; false when there are none left, or when they cannot be written.
bool Sender::give_up_overdue() {
  const std::vector<Delivery> overdue = outbox_.overdue(name_, now(), kDeadAtOnce);
  if (overdue.empty()) return false;
  try {
    DeadLetterFile(files_.dead_letters).append(overdue, now());
  } catch (const std::exception& error) {
    complain(std::string("Cannot write the dead letters: ") + error.what());
    return false;
  }
  outbox_.give_up(overdue);
  const std::string messages =
      counted(static_cast<std::int64_t>(overdue.size()), "message", "messages");
  logmsgf(kLogError, kAlertProgram, "Channel %s: %s not delivered for a day, now in %s",
          name_.c_str(), messages.c_str(), files_.dead_letters.c_str());
  return true;
}

void Sender::complain(const std::string& text) {
  if (text != other_problem_) logmsg(kLogError, kAlertProgram, text.c_str());
  other_problem_ = text;
}

std::int64_t Sender::seconds_to_next(std::int64_t longest) {
  return outbox_.seconds_to_next(name_, now(), longest);
}

SenderThread::SenderThread(std::string name, SenderFiles files, const Settings& settings,
                           const std::string& master)
    : name_(std::move(name)),
      files_(std::move(files)),
      channel_(make_channel(name_, settings, master, stop_)),
      thread_(&SenderThread::run, this) {}

SenderThread::~SenderThread() {
  finish();
  break_off();
  thread_.join();
}

void SenderThread::finish() {
  is_to_end_ = true;
  wakeup_.notify();
}

void SenderThread::run() {
  std::string problem;
  while (!is_to_end_) {
    try {
      work();
    } catch (const std::exception& error) {
      const std::string reason = reason_of(error);
      if (reason != problem) {
        logmsgf(kLogError, kAlertProgram,
                "Channel %s cannot use the state database, trying again: %s", name_.c_str(),
                reason.c_str());
      }
      problem = reason;
      stop_.wait(kSleepAfterProblem);
    }
  }
  ended_ = true;
}

void SenderThread::work() {
  Sender sender(name_, files_, *channel_, stop_);
  while (!is_to_end_) {
    if (sender.step() != Sender::Step::kNothing) continue;
    wakeup_.wait(std::chrono::seconds(sender.seconds_to_next(kLongestSleep.count())));
  }
}

}  // namespace corvane::alert
