#include "companions/alert/channel/mail_channel.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <string_view>

#include "companions/alert/channel/curl_transfer.h"
#include "companions/alert/channel/secret_file.h"
#include "config/settings.h"
#include "platform/clock.h"
#include "util/valid_utf8.h"

namespace corvane::alert {

namespace {

constexpr long kSeconds = 60;
constexpr std::size_t kBase64Line = 57;  // bytes that make a line of 76 characters
constexpr std::size_t kWordBytes = 42;   // of an encoded word, so that a header line has 78

std::string base64(std::string_view text) {
  std::string encoded((text.size() + 2) / 3 * 4, '\0');
  // EVP_EncodeBlock() also writes a null character, where the string has its own.
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(encoded.data()),
                  reinterpret_cast<const unsigned char*>(text.data()),
                  static_cast<int>(text.size()));
  return encoded;
}

std::string base64_lines(std::string_view text) {
  std::string lines;
  for (std::size_t at = 0; at < text.size(); at += kBase64Line) {
    lines += base64(text.substr(at, kBase64Line)) + "\r\n";
  }
  return lines;
}

// Any text as encoded words of a header. No character is split between two words.
std::string encoded_words(const std::string& text) {
  const std::string valid = valid_utf8(text);
  std::string_view rest = valid;
  std::string words;
  while (!rest.empty()) {
    std::size_t length = 0;
    while (length < rest.size()) {
      const std::size_t next = utf8_length(rest.substr(length));
      if (length + next > kWordBytes) break;
      length += next;
    }
    if (!words.empty()) words += "\r\n ";
    words += "=?UTF-8?B?" + base64(rest.substr(0, length)) + "?=";
    rest.remove_prefix(length);
  }
  return words;
}

// Not strftime(), which uses the machine's language.
std::string mail_date(std::int64_t seconds) {
  static constexpr std::array kDays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr std::array kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const std::time_t time = seconds;
  std::tm utc{};
  gmtime_r(&time, &utc);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%s, %d %s %d %02d:%02d:%02d +0000",
                kDays.at(static_cast<std::size_t>(utc.tm_wday)), utc.tm_mday,
                kMonths.at(static_cast<std::size_t>(utc.tm_mon)), utc.tm_year + 1900, utc.tm_hour,
                utc.tm_min, utc.tm_sec);
  return text.data();
}

bool is_address(const std::string& text) {
  const std::size_t at = text.find('@');
  const bool is_plain = std::all_of(text.begin(), text.end(), [](char letter) {
    return (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'Z') ||
           (letter >= 'a' && letter <= 'z') ||
           std::string_view("@._+-=~/").find(letter) != std::string_view::npos;
  });
  return is_plain && at != std::string::npos && at > 0 && at + 1 < text.size() &&
         text.find('@', at + 1) == std::string::npos;
}

struct Upload {
  std::string text;
  std::size_t at = 0;
};

std::size_t on_read(char* buffer, std::size_t size, std::size_t count, void* context) {
  auto* upload = static_cast<Upload*>(context);
  const std::size_t bytes = upload->text.copy(buffer, size * count, upload->at);
  upload->at += bytes;
  return bytes;
}

// "user:password" becomes the transfer's credentials.
void use_credentials(CurlTransfer& transfer, const std::string& path) {
  const std::string line = read_secret(path);
  const std::size_t colon = line.find(':');
  if (colon == std::string::npos || colon == 0 || line.find('\n') != std::string::npos) {
    throw std::runtime_error("secret file " + path +
                             " cannot be used: it must contain one line, user:password");
  }
  transfer.set(CURLOPT_USERNAME, line.substr(0, colon).c_str());
  transfer.set(CURLOPT_PASSWORD, line.substr(colon + 1).c_str());
}

}  // namespace

std::vector<std::string> mail_addresses(const Setting& setting, const std::string& list) {
  std::vector<std::string> addresses;
  std::string::size_type at = 0;
  while ((at = list.find_first_not_of(", \t", at)) != std::string::npos) {
    const std::string::size_type end = std::min(list.find_first_of(", \t", at), list.size());
    addresses.push_back(list.substr(at, end - at));
    if (!is_address(addresses.back())) {
      throw std::runtime_error(std::string(setting.key) + " contains an invalid mail address");
    }
    at = end;
  }
  if (addresses.empty()) throw std::runtime_error(std::string(setting.key) + " is empty");
  return addresses;
}

std::string mail_text(const Message& message, const std::string& from,
                      const std::vector<std::string>& to, std::int64_t now) {
  const std::string boundary = "=_" + message.alert;
  std::string text = "Date: " + mail_date(now) + "\r\nFrom: <" + from + ">\r\nTo: ";
  for (const std::string& one : to) text += (&one == &to.front() ? "<" : ",\r\n <") + one + ">";
  text += "\r\nSubject: " + encoded_words(headline(message)) + "\r\n";
  text += "Message-ID: <" + message.alert + ".cvanomalyalert@" + from.substr(from.find('@') + 1) +
          ">\r\n";
  text += "Auto-Submitted: auto-generated\r\nMIME-Version: 1.0\r\n";
  text += "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\r\n\r\n";
  text += "--" + boundary + "\r\nContent-Type: text/plain; charset=utf-8\r\n";
  text += "Content-Transfer-Encoding: base64\r\n\r\n";
  text += base64_lines(valid_utf8(headline(message) + "\n\n" + message.body));
  text += "\r\n--" + boundary + "\r\nContent-Type: application/json\r\n";
  text += "Content-Disposition: attachment; filename=\"anomaly.json\"\r\n";
  text += "Content-Transfer-Encoding: base64\r\n\r\n" + base64_lines(document_of(message));
  return text + "\r\n--" + boundary + "--\r\n";
}

MailChannel::MailChannel(const Settings& settings, const StopFlag& stop)
    : url_(settings.smtp_url),
      from_(settings.mail_from),
      to_(settings.mail_to),
      credentials_file_(settings.smtp_credentials_file),
      ca_file_(settings.ca_file),
      stop_(stop) {}

SendResult MailChannel::send(const Message& message) {
  const UrlParts parts = parts_of_url(setting::kSmtpUrl, url_);
  if (parts.scheme != "smtp" && parts.scheme != "smtps") {
    return {false, std::string(setting::kSmtpUrl.key) + " must begin with smtp:// or smtps://"};
  }
  const std::vector<std::string> from = mail_addresses(setting::kMailFrom, from_);
  if (from.size() != 1) {
    return {false, std::string(setting::kMailFrom.key) + " must be exactly one address"};
  }
  const std::vector<std::string> to = mail_addresses(setting::kMailTo, to_);
  CurlTransfer transfer(url_, "smtp,smtps", ca_file_);
  // Nobody can listen in on this machine. Still, a password is sent over TLS if the server offers
  // it.
  const curl_usessl on_this_machine = credentials_file_.empty() ? CURLUSESSL_NONE : CURLUSESSL_TRY;
  transfer.set(CURLOPT_USE_SSL,
               static_cast<long>(parts.is_loopback ? on_this_machine : CURLUSESSL_ALL));
  if (!credentials_file_.empty()) use_credentials(transfer, credentials_file_);
  CurlListPtr recipients;
  for (const std::string& one : to) append(recipients, "<" + one + ">");
  Upload upload{mail_text(message, from[0], to, now())};
  transfer.set(CURLOPT_MAIL_FROM, ("<" + from[0] + ">").c_str());
  transfer.set(CURLOPT_MAIL_RCPT, recipients.get());
  transfer.set(CURLOPT_UPLOAD, 1L);
  transfer.set(CURLOPT_READFUNCTION, &on_read);
  transfer.set(CURLOPT_READDATA, &upload);
  const CURLcode code = transfer.perform(kSeconds, stop_);
  return code == CURLE_OK ? SendResult{true, ""}
                          : SendResult{false, parts.host + ": " + transfer.failure(code)};
}

}  // namespace corvane::alert
