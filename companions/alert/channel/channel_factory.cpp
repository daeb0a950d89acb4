#include "companions/alert/channel/channel_factory.h"

#include "companions/alert/channel/channel.h"
#include "companions/alert/channel/command_channel.h"
#include "companions/alert/channel/journal_channel.h"
#include "companions/alert/channel/mail_channel.h"
#include "companions/alert/channel/web_channel.h"
#include "companions/alert/channel/webhook_channel.h"

namespace corvane::alert {

namespace {

class MissingChannel : public Channel {
 public:
  SendResult send(const Message& /*message*/) override {
    return {false, "the channel is not configured: see ALERT_SETTINGS in anomaly_config.conf"};
  }
};

}  // namespace

std::unique_ptr<Channel> make_channel(const std::string& name, const Settings& settings,
                                      const std::string& master, const StopFlag& stop) {
  if (name == kWeb) return std::make_unique<WebChannel>(master);
  if (settings.least_severity(name) == 0) return std::make_unique<MissingChannel>();
  if (name == kSyslog) return std::make_unique<JournalChannel>(settings.syslog_socket, stop);
  if (name == kWebhook) return std::make_unique<WebhookChannel>(settings, stop);
  if (name == kMail) return std::make_unique<MailChannel>(settings, stop);
  return std::make_unique<CommandChannel>(settings.command, settings.command_seconds, stop);
}

}  // namespace corvane::alert
