// The debug log under hostile texts and a disk that takes half of a record: what is read back is
// what was logged, one record each.
//
// The input's first byte says how its parts, separated by NULs, are logged; they are texts and tags
// in turn.
#include "platform/debug_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "tests/fuzz/fuzz.h"
#include "tests/support/scratch_dir.h"

using corvane::fuzz::require;

namespace {

constexpr std::size_t kMaxText = std::size_t{1} << 20;
constexpr std::size_t kMaxTag = 256;

int descriptor = -1;
int writes = 0;
std::size_t room = std::string::npos;  // of the next write

struct Logged {
  std::string tag;
  std::string text;
  bool whole;
};

// Opens the log and returns a descriptor that reads it.
int open_log() {
  static const corvane::test::ScratchDir dir;
  int status = 0;
  descriptor = open_debug_log(dir().c_str(), "fuzz", "log", 0600, &status);
  require(descriptor > 2 && status == 0, "the log is open");
  return open(dir("log").c_str(), O_RDONLY | O_CLOEXEC);
}

std::string content(int reader) {
  std::string text;
  char buffer[8192];
  for (ssize_t length; (length = read(reader, buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(length));
  }
  return text;
}

bool ends_line(const std::string& text, std::size_t at) {
  return text[at] == '\n' || (text[at] == '\r' && text[at + 1] != '\n');
}

// The records without their indentation, split as any reader may split lines: one that begins with
// no tab begins a record.
std::vector<std::string> records_of(const std::string& text) {
  std::vector<std::string> records;
  bool at_begin = true;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (at_begin && text[at] != '\t') records.emplace_back();
    require(!records.empty(), "the first line is no continuation");
    if (!at_begin || text[at] != '\t') records.back() += text[at];
    at_begin = ends_line(text, at);
  }
  return records;
}

std::string expected_message(const Logged& logged) {
  const std::string mark = logged.text.size() > kMaxText ? " [cut]" : "";
  return logged.tag.substr(0, kMaxTag) + ": " + logged.text.substr(0, kMaxText) + mark + "\n";
}

std::size_t prefix_length(const std::string& record) {
  static const std::string kForm = "0000-00-00T00:00:00.000Z ";
  if (record.size() < kForm.size()) return 0;
  for (std::size_t i = 0; i < kForm.size(); ++i) {
    const bool fits =
        kForm[i] == '0' ? record[i] >= '0' && record[i] <= '9' : record[i] == kForm[i];
    if (!fits) return 0;
  }
  const std::string rest = std::to_string(getpid()) + " 4 ";
  return record.compare(kForm.size(), rest.size(), rest) == 0 ? kForm.size() + rest.size() : 0;
}

void log_one(const Logged& logged, bool formatted, std::size_t pieces) {
  writes = 0;
  errno = EXDEV;
  if (!formatted) {
    logmsg(4, logged.tag.c_str(), logged.text.c_str());
  } else {
    const std::size_t middle = logged.text.size() / pieces;
    logmsgf(4, logged.tag.c_str(), "%s%s", logged.text.substr(0, middle).c_str(),
            logged.text.substr(middle).c_str());
  }
  require(errno == EXDEV, "errno is left alone");
  require(writes == 1, "a record is one write");
}

// `text` again and again up to `size` bytes.
std::string filled(const std::string& text, std::size_t size) {
  std::string result = text;
  while (!text.empty() && result.size() < size) result += text;
  if (result.size() > size) result.resize(size);
  return result;
}

// The text as it is logged. Few inputs are blown up, to the lengths round which buffers are changed
// and texts cut.
std::string text_to_log(const std::string& text, unsigned how) {
  if (how == 0xFF) return filled(text, kMaxText - 4 + text.size() % 8);
  if (how >= 0xE0) return filled(text, 4090 + text.size() % 16);
  if (how >= 0xC0) return filled(text, 8030 + text.size() % 160);
  return text;
}

}  // namespace

// Counts the log's writes and cuts one short where the input says so.
extern "C" ssize_t __real_write(int to, const void* bytes, std::size_t count);
extern "C" ssize_t __wrap_write(int to, const void* bytes, std::size_t count);
extern "C" ssize_t __wrap_write(int to, const void* bytes, std::size_t count) {
  if (to != descriptor) return __real_write(to, bytes, count);
  ++writes;
  return __real_write(to, bytes, std::min(count, std::exchange(room, std::string::npos)));
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int reader = open_log();
  if (size == 0) return 0;
  const unsigned how = data[0];
  auto parts = corvane::fuzz::parts_of(corvane::fuzz::text_of(data + 1, size - 1));
  if (parts.size() > 8) parts.resize(8);

  require(ftruncate(descriptor, 0) == 0 && lseek(reader, 0, SEEK_SET) == 0, "the log is empty");
  std::vector<Logged> all;
  for (std::size_t i = 0; i < parts.size(); i += 2) {
    const std::string tag = i + 1 < parts.size() ? parts[i + 1] : "cvanomalymgmt";
    Logged logged{tag, i == 0 ? text_to_log(parts[i], how) : parts[i], true};
    if ((how & 2) != 0 && i == 0) {
      room = how & 0x1C;
      logged.whole = false;
    }
    log_one(logged, (how & 1) != 0, 1 + (how >> 5));
    all.push_back(std::move(logged));
  }
  // After a record that was cut short the next one must still begin a line of its own.
  log_one({"end", "of input", true}, false, 1);

  auto records = records_of(content(reader));
  if (!all.front().whole) {
    all.erase(all.begin());
    if ((how & 0x1C) != 0) records.erase(records.begin());
  }
  all.push_back({"end", "of input", true});
  require(records.size() == all.size(), "a record for each call, none forged");
  for (std::size_t i = 0; i < all.size(); ++i) {
    const std::size_t prefix = prefix_length(records[i]);
    require(prefix != 0, "a record begins with time, process and level", records[i]);
    require(records[i].substr(prefix) == expected_message(all[i]), "the text is there verbatim");
  }
  return 0;
}
