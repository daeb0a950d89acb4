#include "embedded_host/fault.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>
#include <utility>

#include "embedded_host/json_writer.h"
#include "embedded_host/parse_number.h"
#include "platform/c_handles.h"

namespace corvane::host {

namespace {

constexpr off_t kMaxFaultFile = off_t{64} << 10;

struct ActionForm {
  std::string_view word;
  FaultAction action;
  bool needs_argument = false;
  std::int64_t least = 0;
  std::int64_t most = 0;  // 0: it has no argument
};

constexpr std::int64_t kMostElement = 1'000'000;

constexpr ActionForm kActions[] = {
    {"status", FaultAction::kStatus, true, 100, 599},
    {"garbage", FaultAction::kGarbage},
    {"truncate", FaultAction::kTruncate},
    {"cut", FaultAction::kCut},
    {"hang", FaultAction::kHang, true, 0, 3600},
    {"null-end-time", FaultAction::kNullEndTime, false, 0, kMostElement},
    {"surrogate", FaultAction::kSurrogate, false, 0, kMostElement},
    {"nul", FaultAction::kNul, false, 0, kMostElement},
    {"latin1", FaultAction::kLatin1, false, 0, kMostElement},
};

class LineParser {
 public:
  explicit LineParser(const std::string& line) : words_(line) { advance(); }

  Fault parse() {
    Fault fault;
    const ActionForm* form = find_action();
    if (form == nullptr) {
      fault.path = word_;
      advance();
      form = find_action();
    }
    if (form == nullptr && word_.empty()) fail("no action after '" + fault.path + "'");
    if (form == nullptr) fail("unknown action '" + word_ + "'");
    advance();
    fault.action = form->action;
    fault.argument = argument(*form);
    while (!word_.empty()) option(fault);
    return fault;
  }

 private:
  [[noreturn]] static void fail(const std::string& reason) {
    throw BadFaultFile(printable(reason));
  }

  void advance() {
    word_.clear();
    words_ >> word_;
  }

  const ActionForm* find_action() const {
    for (const ActionForm& form : kActions) {
      if (form.word == word_) return &form;
    }
    return nullptr;
  }

  std::int64_t number(std::int64_t least, std::int64_t most) {
    const auto value = parse_number<std::int64_t>(word_);
    if (!value || *value < least || *value > most) {
      fail("expected a number from " + std::to_string(least) + " to " + std::to_string(most) +
           ", not '" + word_ + "'");
    }
    advance();
    return *value;
  }

  std::int64_t argument(const ActionForm& form) {
    const bool given = !word_.empty() && word_ != "skip" && word_ != "count";
    if (!given && !form.needs_argument) return 0;
    if (form.most == 0) fail("only skip and count may follow, not '" + word_ + "'");
    return number(form.least, form.most);
  }

  void option(Fault& fault) {
    const std::string name = word_;
    advance();
    if (name == "skip") {
      fault.skip = number(0, 1'000'000'000);
    } else if (name == "count") {
      fault.count = number(1, 1'000'000'000);
    } else {
      fail("unknown word '" + name + "'");
    }
  }

  std::istringstream words_;
  std::string word_;
};

// The file's content, after data that distinguishes two files with the same content; empty if there
// is no file.
std::string read_fault_file(const std::string& path) {
  const FilePtr file(std::fopen(path.c_str(), "rbe"));
  if (file == nullptr) {
    if (errno == ENOENT) return {};
    throw BadFaultFile(path + ": " + std::strerror(errno));
  }
  struct stat state {};
  fstat(fileno(file.get()), &state);
  if (state.st_size >= kMaxFaultFile) throw BadFaultFile(path + ": too long");
  std::string text(static_cast<std::size_t>(state.st_size), '\0');
  text.resize(std::fread(text.data(), sizeof(char), text.size(), file.get()));
  if (std::ferror(file.get()) != 0) throw BadFaultFile(path + ": cannot be read");
  return std::to_string(state.st_ino) + " " + std::to_string(state.st_mtim.tv_sec) + " " +
         std::to_string(state.st_mtim.tv_nsec) + "\n" + text;
}

std::string with_null_end_time(const std::string& body, std::int64_t element) {
  const JsonPtr root(json_loadb(body.data(), body.size(), 0, nullptr));
  json_t* attributes = json_object_get(
      json_array_get(json_object_get(root.get(), "data"), static_cast<std::size_t>(element)),
      "attributes");
  if (json_object_get(attributes, "endTime") == nullptr) return body;
  json_object_set_new(attributes, "endTime", json_null());
  struct Free {
    void operator()(char* text) const noexcept { std::free(text); }
  };
  const std::unique_ptr<char, Free> text(json_dumps(root.get(), JSON_COMPACT));
  return text != nullptr ? text.get() : body;
}

// The clientName with this number, from 0, begins with `oddity`. JSON libraries do not write such
// names.
std::string with_odd_name(std::string body, std::int64_t number, std::string_view oddity) {
  static constexpr std::string_view kName = R"("clientName":")";
  std::size_t at = body.find(kName);
  for (; at != std::string::npos && number > 0; --number) at = body.find(kName, at + 1);
  if (at != std::string::npos) body.insert(at + kName.size(), oddity);
  return body;
}

}  // namespace

std::vector<Fault> parse_faults(const std::string& text) {
  std::vector<Fault> faults;
  std::istringstream lines(text);
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    try {
      faults.push_back(LineParser(line).parse());
    } catch (const BadFaultFile& error) {
      throw BadFaultFile("line " + std::to_string(number) + ": " + error.what());
    }
  }
  return faults;
}

void apply_fault(const Fault& fault, WebReply& reply) {
  switch (fault.action) {
    case FaultAction::kStatus:
      reply = error_reply(static_cast<int>(fault.argument), "answered on purpose");
      break;
    case FaultAction::kGarbage:
      reply = {.status = 200, .body = "\xff\xfe<garbage>{\"data\":[[[\x01"};
      break;
    case FaultAction::kTruncate:
      reply.body.resize(reply.body.size() / 2);
      break;
    case FaultAction::kNullEndTime:
      reply.body = with_null_end_time(reply.body, fault.argument);
      break;
    case FaultAction::kSurrogate:
      reply.body = with_odd_name(std::move(reply.body), fault.argument, "\\ud800");
      break;
    case FaultAction::kNul:
      reply.body = with_odd_name(std::move(reply.body), fault.argument, "\\u0000");
      break;
    case FaultAction::kLatin1:
      reply.body = with_odd_name(std::move(reply.body), fault.argument, "\xe9");
      break;
    case FaultAction::kCut:
    case FaultAction::kHang:
      break;
  }
}

std::optional<Fault> FaultFile::next(std::string_view path) {
  if (path.starts_with('/')) path.remove_prefix(1);
  const std::lock_guard lock(mutex_);
  const std::string content = read_fault_file(path_);
  if (content != seen_) {
    faults_.clear();
    hits_.clear();
    seen_.clear();
    if (!content.empty()) {
      try {
        faults_ = parse_faults(content.substr(content.find('\n') + 1));
      } catch (const BadFaultFile& error) {
        throw BadFaultFile(path_ + ": " + error.what());
      }
    }
    hits_.resize(faults_.size());
    seen_ = content;
  }
  for (std::size_t i = 0; i < faults_.size(); ++i) {
    const Fault& fault = faults_[i];
    if (!path.starts_with(fault.path)) continue;
    const std::int64_t hit = hits_[i]++;
    if (hit >= fault.skip && (!fault.count || hit - fault.skip < *fault.count)) return fault;
  }
  return std::nullopt;
}

}  // namespace corvane::host
