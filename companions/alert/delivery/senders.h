// One sender for each channel.
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

  // Starts one for the web service, for each configured channel and for each of `others`, unless
  // there is one already.
  void start(const Settings& settings, const std::vector<std::string>& others);
  void wake();

  // Ends all of them, or all except that of the web service, which does not depend on the settings.
  // What is being sent has half of the time to finish and is then cancelled. False when some are
  // still running after that time; they stay.
  bool end(int milliseconds, bool with_web);

 private:
  SenderFiles files_;
  std::string master_;
  std::vector<std::unique_ptr<SenderThread>> threads_;
};

}  // namespace corvane::alert
