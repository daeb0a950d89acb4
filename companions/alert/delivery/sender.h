// Telling one channel what it is to be told.
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

// With a database connection of its own; for one thread. A failure's reason is logged once until
// the channel works again or fails for another one. step() throws sqlite_exception, but not before
// the outcome of what was sent is noted, however long that takes.
class Sender {
 public:
  enum class Step { kNothing, kTaken, kFailed };

  // `channel` and `stop` must outlive it.
  Sender(std::string name, SenderFiles files, Channel& channel, const StopFlag& stop);

  // Sends the next message that is due. When that fails, what is overdue is given up.
  Step step();
  // How long there is nothing to do, at most `longest`.
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
  std::string trouble_;        // the reason that was logged last
  std::string other_trouble_;  // what else was complained of last
};

// A sender with its channel on a thread of its own, so that one that hangs holds up no other.
class SenderThread {
 public:
  SenderThread(std::string name, SenderFiles files, const Settings& settings,
               const std::string& master);
  // Breaks off, and waits for the thread.
  ~SenderThread();
  SenderThread(const SenderThread&) = delete;
  SenderThread& operator=(const SenderThread&) = delete;

  const std::string& name() const { return name_; }
  // There may be something to send.
  void wake() { wakeup_.notify(); }
  // Nothing more is begun.
  void finish();
  // What is being sent is broken off.
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
