// Sends the messages of one channel.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "companions/alert/channel/channel.h"
#include "companions/alert/channel/wakeup.h"
#include "companions/alert/delivery/outbox.h"
#include "companions/alert/settings_file.h"
#include "companions/alert/state_database.h"

namespace corvane::alert {

struct SenderFiles {
  std::string state;
  std::string dead_letters;
};

// Has its own database connection; for one thread. The reason of a failure is logged once, until
// the channel works again or fails for another reason. step() throws QueryError, but not before the
// outcome of what was sent is recorded, however long that takes.
class Sender {
 public:
  enum class Step { kNothing, kTaken, kFailed };

  // `channel` and `stop` must outlive it.
  Sender(std::string name, SenderFiles files, Channel& channel, const StopFlag& stop);

  // Sends the next message that is due. If that fails, overdue messages become dead letters.
  Step step();
  // How many seconds there is nothing to do, at most `longest`.
  std::int64_t seconds_to_next(std::int64_t longest);

 private:
  SendResult send(const Message& message);
  void note(const std::function<void()>& write);
  bool give_up_overdue();
  void complain(const std::string& text);

  std::string name_;
  SenderFiles files_;
  StateDatabase state_;
  Outbox outbox_;
  Channel& channel_;
  const StopFlag& stop_;
  std::string problem_;        // the last reason that was logged
  std::string other_problem_;  // the last other problem that was logged
};

// A sender and its channel on their own thread, so that a channel that hangs holds up no other.
class SenderThread {
 public:
  SenderThread(std::string name, SenderFiles files, const Settings& settings,
               const std::string& master);
  // Cancels what is being sent and waits for the thread.
  ~SenderThread();
  SenderThread(const SenderThread&) = delete;
  SenderThread& operator=(const SenderThread&) = delete;

  const std::string& name() const { return name_; }
  // There may be something to send.
  void wake() { wakeup_.notify(); }
  // Starts nothing more.
  void finish();
  // Cancels what is being sent.
  void break_off() { stop_.ask(); }
  bool has_ended() const { return ended_; }

 private:
  void run();
  void work();

  std::string name_;
  SenderFiles files_;
  StopFlag stop_;
  Wakeup wakeup_;
  std::unique_ptr<Channel> channel_;
  std::atomic<bool> is_to_end_{false};
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

}  // namespace corvane::alert
