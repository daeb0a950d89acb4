// Watches one file for modification on a thread of its own.
#pragma once

#include <mutex>
#include <string>
#include <thread>

// Owned and driven by one thread; the polling thread touches the two flags only, each behind its
// own mutex. int results are 0 for success and 1 for failure. The modification flag is a latch:
// several changes between two reads are one.
class Poller {
 public:
  // `interval` is the pause between two looks at the file, in seconds. No thread is started.
  Poller(std::string path, int interval);

  // Stops the thread as TerminatePolling does; the process ends (std::terminate) should the thread
  // be impossible to join.
  ~Poller();
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;

  // Fails when a thread was started and not yet terminated, also one that has ended by itself.
  int StartPolling();

  // Waits for the thread's current pause, so up to one interval. Fails when none was started.
  int TerminatePolling();

  // Reads and clears the flag; `out` is false on failure.
  int IsModified(bool& out);

  int setModified();
  int setStopPoller();
  int unsetStopPoller();

  // True also when the flag cannot be read: a poller that cannot know goes.
  bool isStopPoller();

  // The thread's body: looks at the file's modification time until told to stop or until the file
  // cannot be examined for another reason than its absence. Returns the last result of stat(2).
  int poller();

 private:
  std::thread thread_;
  std::string path_;
  int interval_;
  std::mutex modified_mutex_;
  bool m_modified = false;
  std::mutex stop_polling_mutex_;
  bool m_stop_polling = false;
};
