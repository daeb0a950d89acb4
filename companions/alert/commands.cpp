#include "companions/alert/commands.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "companions/alert/channel/channel.h"
#include "companions/alert/channel/channel_factory.h"
#include "companions/alert/delivery/dead_letter.h"
#include "companions/alert/delivery/outbox.h"
#include "companions/alert/delivery/sender.h"
#include "companions/alert/incident/intake.h"
#include "companions/alert/incident/sentence.h"
#include "companions/alert/settings_file.h"
#include "companions/alert/state_database.h"
#include "companions/common/error_text.h"
#include "companions/common/program_lock.h"
#include "companions/common/stop_signals.h"
#include "finding/plain_text.h"
#include "finding/words.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/debug_log.h"
#include "platform/program_names.h"
#include "util/directory.h"

namespace corvane::alert {

namespace {

constexpr char kNothingSent[] = "No alert has been sent yet.\n";
constexpr std::chrono::milliseconds kLookEvery(20);
constexpr std::chrono::milliseconds kEndWithin(600);

Settings settings_of(const Options& options) {
  Settings settings;
  std::vector<std::string> complaints;
  if (!read_settings(options.config_path(), settings, complaints)) {
    throw std::runtime_error(options.config_path() + " cannot be read or has a malformed line");
  }
  for (const std::string& complaint : complaints) {
    logmsg(kLogWarning, kAlertProgram, complaint.c_str());
    write_console_error(complaint + "\n");
  }
  return settings;
}

std::vector<std::string> configured_channels(const Settings& settings) {
  std::vector<std::string> channels{kWeb};
  for (const std::string& channel : settings.people()) channels.push_back(channel);
  return channels;
}

// Works on all channels at the same time, as one of them may hang. A signal interrupts them.
void for_each_channel(const std::vector<std::string>& channels, StopSignals& signals,
                      StopFlag& stop, const std::function<void(const std::string&)>& work) {
  std::atomic<std::size_t> busy{channels.size()};
  std::vector<std::thread> threads;
  threads.reserve(channels.size());
  for (const std::string& channel : channels) {
    threads.emplace_back([&, channel] {
      work(channel);
      --busy;
    });
  }
  while (busy > 0 && !signals.arrived()) std::this_thread::sleep_for(kLookEvery);
  stop.ask();
  const auto deadline = std::chrono::steady_clock::now() + kEndWithin;
  while (busy > 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(kLookEvery);
  }
  if (busy > 0) _exit(1);  // the web channel, which cannot be interrupted
  for (std::thread& thread : threads) thread.join();
}

struct SendCounts {
  std::atomic<std::int64_t> taken{0};
  std::atomic<std::int64_t> failed{0};  // channels
};

void send_all_due(const Options& options, const Settings& settings, StateDatabase& state,
                  StopSignals& signals, SendCounts& counts) {
  StopFlag stop;
  const SenderFiles files{options.own_file(".db"), options.own_file(".dead")};
  const auto send_due = [&](const std::string& name) {
    try {
      const auto channel = make_channel(name, settings, master_name(options), stop);
      Sender sender(name, files, *channel, stop);
      Sender::Step step;
      while ((step = sender.step()) == Sender::Step::kTaken) ++counts.taken;
      if (step == Sender::Step::kFailed) ++counts.failed;
    } catch (const std::exception& error) {
      logmsgf(kLogError, kAlertProgram, "Channel %s cannot use the state database: %s",
              name.c_str(), reason_of(error).c_str());
      ++counts.failed;
    }
  };
  Outbox outbox(state);
  outbox.end_pauses();
  for_each_channel(outbox.channels_waited_for(), signals, stop, send_due);
}

std::string sent_in_words(const SendCounts& counts) {
  std::string words = counted(counts.taken, "message delivered", "messages delivered");
  if (counts.failed > 0) {
    words += ", " + counted(counts.failed, "channel failed", "channels failed") + ", see -status";
  }
  return words;
}

std::string status_in_words(const ChannelStatus& status, std::int64_t at) {
  const auto number = [](std::int64_t n) { return number_text(static_cast<double>(n)); };
  std::string text = status.name + ": " + number(status.taken) + " delivered, " +
                     number(status.waiting) + " pending";
  if (status.oldest > 0) text += " since " + utc_text(status.oldest);
  text += ", " + counted(status.given_up, "dead letter", "dead letters");
  if (status.last_success > 0) text += "; last delivery " + utc_text(status.last_success);
  text += "\n";
  if (status.failures == 0) return text;
  text += "  failing since " + utc_text(status.failing_since) + ", " +
          counted(status.failures, "failed attempt", "failed attempts in a row") + ": " +
          plain_text(status.last_error) + "\n";
  if (status.waiting == 0 || status.paused_until <= at) return text;
  return text + "  next attempt in " + span_text(status.paused_until - at) + "\n";
}

Message test_message(const std::string& master) {
  Message message;
  message.created = message.since = message.until = now();
  message.alert = "test-" + std::to_string(message.created);
  message.kind = Kind::kTest;
  message.anomaly_id = message.incident = "cvanomalyalert_test";
  message.subject = "Test alert from " + plain_text(master);
  message.body = "This is only a test of the alerts. No anomaly was detected.\n";
  message.details = "{}";
  return message;
}

SendResult sent(const std::string& name, const Settings& settings, const std::string& master,
                const StopFlag& stop) {
  try {
    return make_channel(name, settings, master, stop)->send(test_message(master));
  } catch (const std::exception& error) {
    return {false, error.what()};
  }
}

}  // namespace

int run_once(const Options& options) {
  return guarded(kAlertProgram, [&] {
    StopSignals signals;
    const Settings settings = settings_of(options);
    ProgramLock lock(options.own_file(".lock"));
    if (!lock.take()) {
      throw std::runtime_error(
          "another cvanomalyalert is running and sends pending messages by itself");
    }
    StateDatabase state(options.own_file(".db"));
    Intake intake(options.database_path(), state, master_name(options), 0,
                  [&] { return signals.arrived(); });
    intake.set_settings(settings);
    const PassCounts pass = intake.pass(now());
    SendCounts counts;
    send_all_due(options, settings, state, signals, counts);
    const std::size_t done = intake.mark_processed();
    write_console(counted(static_cast<std::int64_t>(pass.records), "new anomaly", "new anomalies") +
                  ", " + sent_in_words(counts) + ", " +
                  counted(static_cast<std::int64_t>(done), "anomaly", "anomalies") +
                  " processed\n");
    return counts.failed > 0 ? 1 : 0;
  });
}

int run_test(const Options& options) {
  return guarded(kAlertProgram, [&] {
    StopSignals signals;
    StopFlag stop;
    const Settings settings = settings_of(options);
    const std::string master = master_name(options);
    const std::vector<std::string> channels = options.test_channel.empty()
                                                  ? configured_channels(settings)
                                                  : std::vector<std::string>{options.test_channel};
    std::mutex console;
    std::atomic<bool> all_taken{true};
    for_each_channel(channels, signals, stop, [&](const std::string& name) {
      const SendResult result = sent(name, settings, master, stop);
      if (!result.is_taken) all_taken = false;
      const std::lock_guard<std::mutex> guard(console);
      write_console(name + ": " + (result.is_taken ? "delivered" : "failed: " + result.reason) +
                    "\n");
    });
    return all_taken ? 0 : 1;
  });
}

int run_status(const Options& options) {
  return guarded(kAlertProgram, [&] {
    if (!Directory::CanAccess(options.own_file(".db"))) {
      write_console(kNothingSent);
      return 0;
    }
    StateDatabase state(options.own_file(".db"), false);
    std::string text;
    for (const ChannelStatus& status : Outbox(state).status()) {
      text += status_in_words(status, now());
    }
    write_console(text.empty() ? kNothingSent : text);
    return 0;
  });
}

int run_resend(const Options& options) {
  return guarded(kAlertProgram, [&] {
    StopSignals signals;
    const Settings settings = settings_of(options);
    StateDatabase state(options.own_file(".db"));
    Outbox outbox(state);
    std::int64_t revived = 0;
    {
      const DeadLetterFile letters(options.own_file(".dead"));
      revived = outbox.revive();
      letters.clear();
    }
    std::string words = counted(revived, "dead letter is", "dead letters are") + " pending again";
    SendCounts counts;
    ProgramLock lock(options.own_file(".lock"));
    if (lock.take()) {
      Intake intake(options.database_path(), state, "", 0, [&] { return signals.arrived(); });
      send_all_due(options, settings, state, signals, counts);
      intake.mark_processed();
      words += ", " + sent_in_words(counts);
    } else {
      outbox.end_pauses();
      words += "; the running cvanomalyalert will send all pending messages";
    }
    write_console(words + "\n");
    return counts.failed > 0 ? 1 : 0;
  });
}

}  // namespace corvane::alert
