// Watches one file for modification, in its own thread.
#pragma once

#include <mutex>
#include <string>
#include <thread>

// Owned and called by one thread; the polling thread uses only the two flags, each behind its own
// mutex. int results are 0 for success and 1 for failure. The modification flag is a latch: several
// changes between two reads are one.
class Poller {
 public:
  // `interval` is the pause between two looks at the file, in seconds. No thread is started.
  Poller(std::string path, int interval);

  // Stops the thread as TerminatePolling does; the process ends (std::terminate) if the thread
  // cannot be joined.
  ~Poller();
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;

  // Fails if a thread was started and not yet terminated, even if it has ended by itself.
  int StartPolling();

  // Waits for the thread's current pause, up to one interval. Fails if no thread was started.
  int TerminatePolling();

  // Reads and clears the flag; `out` is false on failure.
  int IsModified(bool& out);

  int setModified();
  int setStopPoller();
  int unsetStopPoller();

  // True also if the flag cannot be read: then the poller ends.
  bool isStopPoller();

  // The thread's body: checks the file's modification time until it is to stop, or until stat fails
  // for any reason but a missing file. Returns the last result of stat(2).
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
