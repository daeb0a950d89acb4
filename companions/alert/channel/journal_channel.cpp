#include "companions/alert/channel/journal_channel.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "config/settings.h"
#include "platform/descriptor.h"
#include "platform/program_names.h"
#include "util/valid_utf8.h"

namespace corvane::alert {

namespace {

constexpr std::chrono::seconds kPatience(5);
constexpr std::chrono::milliseconds kLookEvery(10);

// A value of several lines comes after its length: 8 bytes, the least significant first.
void add_field(std::string& entry, const char* name, std::string_view value) {
  entry += name;
  if (value.find('\n') == std::string_view::npos) {
    entry += '=';
  } else {
    entry += '\n';
    for (unsigned shift = 0; shift < 64; shift += 8) {
      entry += static_cast<char>((std::uint64_t{value.size()} >> shift) & 0xFF);
    }
  }
  entry += value;
  entry += '\n';
}

// Syslog's priorities: critical, error, warning, and notice where there is nothing to do.
const char* priority_of(const Message& message) {
  if (message.kind == Kind::kEnd || message.kind == Kind::kTest) return "5";
  return message.severity == Severity::kCritical ? "2"
         : message.severity == Severity::kMajor  ? "3"
                                                 : "4";
}

SendResult failure(const char* what) {
  return {false, std::string(what) + ": " + std::strerror(errno)};
}

// A busy journal refuses messages for a moment. Returns sendmsg's result, with its errno.
ssize_t send_patiently(int socket, const msghdr& datagram, const StopFlag& stop) {
  const auto give_up = std::chrono::steady_clock::now() + kPatience;
  for (;;) {
    const ssize_t sent = sendmsg(socket, &datagram, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent != -1 || (errno != EAGAIN && errno != EINTR)) return sent;
    if (std::chrono::steady_clock::now() >= give_up || stop.wait(kLookEvery)) {
      errno = EAGAIN;
      return -1;
    }
  }
}

// An entry that is too large for a datagram is sent as a sealed file.
ssize_t send_as_file(int socket, msghdr datagram, const std::string& entry, const StopFlag& stop) {
  const Descriptor file(memfd_create("entry", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!file.is_open()) return -1;
  for (std::size_t at = 0; at < entry.size();) {
    const ssize_t written = write(file.get(), entry.data() + at, entry.size() - at);
    if (written == -1) return -1;
    at += static_cast<std::size_t>(written);
  }
  constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;
  if (fcntl(file.get(), F_ADD_SEALS, kSeals) != 0) return -1;

  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))]{};
  datagram.msg_iov = nullptr;
  datagram.msg_iovlen = 0;
  datagram.msg_control = control;
  datagram.msg_controllen = sizeof control;
  cmsghdr* header = CMSG_FIRSTHDR(&datagram);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof(int));
  const int descriptor = file.get();
  std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
  return send_patiently(socket, datagram, stop);
}

}  // namespace

std::string journal_entry(const Message& message) {
  std::string entry;
  add_field(entry, "MESSAGE", valid_utf8(headline(message) + "\n" + message.body));
  add_field(entry, "PRIORITY", priority_of(message));
  add_field(entry, "SYSLOG_IDENTIFIER", kAlertProgram);
  add_field(entry, "ANOMALY_ALERT", message.alert);
  add_field(entry, "ANOMALY_KIND", name_of(message.kind));
  add_field(entry, "ANOMALY_SEVERITY", std::to_string(number_of(message.severity)));
  add_field(entry, "ANOMALY_ID", valid_utf8(message.anomaly_id));
  add_field(entry, "ANOMALY_INCIDENT", valid_utf8(message.incident));
  add_field(entry, "ANOMALY_CLIENT", valid_utf8(message.client));
  add_field(entry, "ANOMALY_POLICY", valid_utf8(message.policy));
  add_field(entry, "ANOMALY_SCHEDULE", valid_utf8(message.schedule));
  add_field(entry, "ANOMALY_CAUSE", valid_utf8(message.cause));
  add_field(entry, "ANOMALY_JSON", document_of(message));
  return entry;
}

JournalChannel::JournalChannel(std::string socket, const StopFlag& stop)
    : socket_(std::move(socket)), stop_(stop) {}

SendResult JournalChannel::send(const Message& message) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (socket_.size() >= sizeof address.sun_path)
    return {false, std::string(setting::kSyslogSocket.key) + " is too long"};
  socket_.copy(address.sun_path, socket_.size());
  const Descriptor journal(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!journal.is_open()) return failure("cannot create a socket");
  if (connect(journal.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return failure("cannot connect to the journal");
  }
  std::string entry = journal_entry(message);
  iovec content{entry.data(), entry.size()};
  msghdr datagram{};
  datagram.msg_iov = &content;
  datagram.msg_iovlen = 1;
  ssize_t sent = send_patiently(journal.get(), datagram, stop_);
  if (sent == -1 && (errno == EMSGSIZE || errno == ENOBUFS)) {
    sent = send_as_file(journal.get(), datagram, entry, stop_);
  }
  return sent == -1 ? failure("cannot write to the journal") : SendResult{true, ""};
}

}  // namespace corvane::alert
