// A sender for each channel.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "companions/alert/delivery/sender.h"
#include "companions/alert/settings_file.h"

namespace corvane::alert {

class Senders {
 public:
  Senders(SenderFiles files, std::string master);

  // One for the web service, for each configured channel and for each of `others`, where there is
  // none yet.
  void start(const Settings& settings, const std::vector<std::string>& others);
  void wake();

  // Ends them, all or all but the web service's, which does not depend on the settings. What is
  // being sent has half of the time to come to its end, and is then broken off. False when some
  // still run after that time; they are then still there.
  bool end(int milliseconds, bool with_web);

 private:
  SenderFiles files_;
  std::string master_;
  std::vector<std::unique_ptr<SenderThread>> threads_;
};

}  // namespace corvane::alert
