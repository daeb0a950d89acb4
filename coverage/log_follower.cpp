#include "coverage/log_follower.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>
#include <tuple>
#include <utility>

namespace corvane::coverage {

namespace {

constexpr std::size_t kLongestLine = std::size_t{2} << 20;  // a record is cut at 1 MiB

struct CloseFile {
  void operator()(gzFile file) const noexcept { gzclose(file); }
};

// A file, compressed or not, line by line.
class LineReader {
 public:
  explicit LineReader(const std::string& path) : file_(gzopen(path.c_str(), "rbe")) {}

  bool is_open() const { return file_ != nullptr; }
  bool seek(std::int64_t offset) {
    offset_ = offset;
    return gzseek(file_.get(), offset, SEEK_SET) == offset;
  }
  // The next complete line without its end; nothing at the end of the file, or where it is damaged.
  std::optional<std::string_view> next() {
    offset_ += static_cast<std::int64_t>(std::exchange(taken_, 0));
    for (;;) {
      const std::string_view rest = std::string_view(text_).substr(at_);
      const std::size_t end = rest.find('\n', searched_);
      if (end != std::string_view::npos) {
        at_ += end + 1;
        taken_ = end + 1;
        searched_ = 0;
        return rest.substr(0, end);
      }
      searched_ = rest.size();
      if (searched_ > kLongestLine) drop();
      if (!fill()) return std::nullopt;
    }
  }
  // When next() has returned nothing: of the line that it returns next.
  std::int64_t offset() const { return offset_; }
  bool is_damaged() const {
    int error = Z_OK;
    gzerror(file_.get(), &error);
    return error != Z_OK;
  }

 private:
  // No record is so long: only the end of such a line is returned.
  void drop() {
    offset_ += static_cast<std::int64_t>(searched_);
    text_.clear();
    at_ = searched_ = 0;
  }
  bool fill() {
    std::array<char, 65536> buffer;
    const int size = gzread(file_.get(), buffer.data(), buffer.size());
    if (size <= 0) return false;
    text_.erase(0, std::exchange(at_, 0));
    text_.append(buffer.data(), static_cast<std::size_t>(size));
    return true;
  }

  std::unique_ptr<gzFile_s, CloseFile> file_;
  std::string text_;
  std::size_t at_ = 0;        // in the text: of the next line
  std::size_t searched_ = 0;  // of the next line: where no end was found
  std::size_t taken_ = 0;     // bytes of the line that was returned last
  std::int64_t offset_ = 0;   // in the file: of that line
};

// Where a file stands among the others by its name, the oldest first: "log.10", "log.2.gz",
// "log.1", files that are named by dates or otherwise, and the log itself.
int place_of(std::string_view suffix) {
  constexpr int kMostFiles = 9999;  // above that it is a date
  if (suffix.empty()) return 1;
  int number = 0;
  std::from_chars(suffix.data() + 1, suffix.data() + suffix.size(), number);
  return suffix.front() == '.' && number <= kMostFiles ? -number : 0;
}

std::string first_line_of(const std::string& path) {
  LineReader reader(path);
  if (!reader.is_open()) return {};
  return std::string(reader.next().value_or(""));
}

}  // namespace

LogFollower::LogFollower(std::string path) : path_(std::move(path)) {}

// Those with a line, the oldest first. The time of the first line decides only where the name does
// not: a clock that was ahead is in the lines, too.
std::vector<LogFollower::File> LogFollower::files() const {
  const std::filesystem::path log(path_);
  const std::string name = log.filename().string();
  std::vector<File> found;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(log.parent_path(), error)) {
    const std::string other = entry.path().filename().string();
    const bool is_rotated = other.size() > name.size() + 1 && other.starts_with(name) &&
                            (other[name.size()] == '.' || other[name.size()] == '-');
    if (other != name && !is_rotated) continue;
    std::string line = first_line_of(entry.path().string());
    const int place = place_of(std::string_view(other).substr(name.size()));
    if (!line.empty()) found.push_back({entry.path().string(), std::move(line), place});
  }
  std::ranges::sort(found, [](const File& a, const File& b) {
    return std::tie(a.place, a.first_line, a.path) < std::tie(b.place, b.first_line, b.path);
  });
  // While a file is being compressed there are two of it; the name of the finished one is shorter.
  const auto is_twin = [](const File& a, const File& b) { return a.first_line == b.first_line; };
  found.erase(std::unique(found.begin(), found.end(), is_twin), found.end());
  return found;
}

bool LogFollower::read(LogPosition& position, const Visit& visit,
                       const std::function<void()>& missing) {
  const std::vector<File> all = files();
  auto file = std::ranges::find(all, position.first_line, &File::first_line);
  bool is_complete = position.first_line.empty() || file != all.end();
  if (file == all.end()) {
    file = all.begin();
    if (!is_complete) missing();
    position.offset = 0;
  }
  for (; file != all.end(); ++file) {
    if (file->first_line != position.first_line) position = {file->first_line, 0};
    LineReader reader(file->path);
    if (reader.is_open() && reader.seek(position.offset)) {
      while (const auto line = reader.next()) visit(*line);
      position.offset = reader.offset();
    }
    if (!reader.is_open() || reader.is_damaged()) {
      missing();
      is_complete = false;
    }
  }
  return is_complete;
}

}  // namespace corvane::coverage
